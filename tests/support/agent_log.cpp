#include "agent_log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "wait.h"

namespace dro_test {
namespace {

std::string read_whole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// "TIME MODULE LEVEL FILE:LINE MESSAGE"
LogLine parse(const std::string& text) {
    LogLine line;
    std::istringstream stream(text);
    std::string time;
    std::string module;
    std::string place;
    stream >> time >> module >> line.level >> place;
    stream.get();
    std::getline(stream, line.message);
    line.file = place.substr(0, place.find(':'));
    return line;
}

}  // namespace

std::string as_logged(std::string_view text) {
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    std::string shown;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        std::array<char, 8> escaped{byte, '\0'};
        if (byte == '\n' || byte == '\t' || byte == '\r') {
            escaped = {'\\', byte == '\n' ? 'n' : byte == '\t' ? 't' : 'r'};
        } else if (value < 0x20 || value == 0x7f) {
            std::snprintf(escaped.data(), escaped.size(), "\\x%02x", value);
        }
        shown += escaped.data();
    }
    return shown;
}

AgentLog::AgentLog(std::string path) : path_(std::move(path)) {}

std::vector<LogLine> AgentLog::lines() const {
    const std::string whole = read_whole(path_);
    std::vector<LogLine> lines;
    std::size_t at = std::min(start_, whole.size());
    for (auto end = whole.find('\n', at); end != std::string::npos; end = whole.find('\n', at)) {
        lines.push_back(parse(whole.substr(at, end - at)));
        at = end + 1;
    }
    return lines;
}

void AgentLog::forget() {
    start_ = read_whole(path_).size();
}

std::size_t AgentLog::count(std::string_view text, int level) const {
    const auto all = lines();
    const std::string shown = as_logged(text);
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const LogLine& line) {
        return line.message == shown && (level == 0 || line.level == level);
    }));
}

std::size_t AgentLog::count_starting(std::string_view start, int level) const {
    const auto all = lines();
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const LogLine& line) {
        return line.message.starts_with(start) && (level == 0 || line.level == level);
    }));
}

bool AgentLog::wait_for(std::string_view text, std::size_t times) const {
    return eventually([&] { return count(text) >= times; });
}

bool AgentLog::in_order(const std::vector<std::string>& texts) const {
    auto wanted = texts.begin();
    for (const LogLine& line : lines()) {
        if (wanted != texts.end() && line.message == as_logged(*wanted)) {
            ++wanted;
        }
    }
    return wanted == texts.end();
}

}  // namespace dro_test

#include "agent_log.h"

#include <algorithm>
#include <sstream>

namespace dro_test {
namespace {

// "TIME MODULE LEVEL FILE:LINE MESSAGE"
LogLine parse(const std::string& text) {
    LogLine line;
    std::istringstream stream(text);
    std::string word;
    stream >> word >> word >> line.level >> word;
    stream.get();
    std::getline(stream, line.message);
    return line;
}

// `text` as a log line shows it.
std::string as_logged(std::string_view text) {
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    std::string shown;
    for (const char byte : text) {
        const auto control = std::string_view("\n\t\r").find(byte);
        shown += control == std::string_view::npos ? std::string{byte} : std::string{'\\', "ntr"[control]};
    }
    return shown;
}

}  // namespace

std::vector<LogLine> AgentLog::lines() const {
    const std::string whole = file_text(path_);
    std::vector<LogLine> lines;
    std::size_t at = std::min(start_, whole.size());
    for (auto end = whole.find('\n', at); end != std::string::npos; end = whole.find('\n', at)) {
        lines.push_back(parse(whole.substr(at, end - at)));
        at = end + 1;
    }
    return lines;
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

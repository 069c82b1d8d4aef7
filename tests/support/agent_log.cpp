#include "agent_log.h"

#include <algorithm>
#include <sstream>

namespace dro_test {
namespace {

// `text` in the form of a log line.
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

std::vector<std::string> AgentLog::texts(int level) const {
    const std::string whole = file_text(path_);
    std::istringstream lines(whole.substr(std::min(start_, whole.size())));
    std::vector<std::string> texts;
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
        std::istringstream words(line);  // "TIME MODULE LEVEL FILE:LINE MESSAGE"
        std::string word;
        int lineLevel = 0;
        words >> word >> word >> lineLevel >> word;
        std::getline(words.ignore(), line);
        if (level == 0 || level == lineLevel) {
            texts.push_back(line);
        }
    }
    return texts;
}

std::size_t AgentLog::count(std::string_view text, int level) const {
    return static_cast<std::size_t>(std::ranges::count(texts(level), as_logged(text)));
}

std::size_t AgentLog::count_starting(std::string_view start, int level) const {
    const auto starts = [start](const std::string& text) { return text.starts_with(start); };
    return static_cast<std::size_t>(std::ranges::count_if(texts(level), starts));
}

bool AgentLog::in_order(const std::vector<std::string>& wanted) const {
    auto next = wanted.begin();
    for (const std::string& text : texts()) {
        next += next != wanted.end() && text == as_logged(*next) ? 1 : 0;
    }
    return next == wanted.end();
}

}  // namespace dro_test

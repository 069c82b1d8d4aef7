// agent_log.h - the agent's log lines, from the file named by HAB_LOG_FILE. Any thread.
#pragma once

#include <string_view>

#include "test_store.h"

namespace dro_test {

// Texts are passed as in the agent's code, including the newline, and compared exactly. The log drops the last newline
// and escapes control bytes; both sides are compared in that form. Levels: 1 trace, 2 notice, 4 error, 0 any.
class AgentLog {
 public:
    explicit AgentLog(std::string path) : path_(std::move(path)) {}

    // The texts of this level since the last forget(), in the log's form. An incomplete last line is omitted.
    std::vector<std::string> texts(int level = 0) const;
    // Limits later calls to lines logged from now on.
    void forget() { start_ = file_text(path_).size(); }

    // The number of lines with this text.
    std::size_t count(std::string_view text, int level = 0) const;
    bool has(std::string_view text, int level = 0) const { return count(text, level) > 0; }
    // The number of lines that start with this text, for texts with a variable end.
    std::size_t count_starting(std::string_view start, int level = 0) const;
    // Waits until the text has been logged `times` times; false on timeout.
    bool wait_for(std::string_view text, std::size_t times = 1) const {
        return eventually([&] { return count(text) >= times; });
    }
    // True when these texts occur in this order, possibly with others in between.
    bool in_order(const std::vector<std::string>& wanted) const;

    const std::string& path() const { return path_; }

 private:
    std::string path_;
    std::size_t start_ = 0;
};

}  // namespace dro_test

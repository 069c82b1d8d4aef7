// agent_log.h - what the agent logged, line by line, from the file that HAB_LOG_FILE names. Any thread.
#pragma once

#include <string_view>

#include "test_store.h"

namespace dro_test {

// Texts are given as the agent's code spells them, newline and all, and compared to the letter; the log keeps neither a
// last newline nor unescaped control bytes, so both sides are compared in the log's form. Levels: 1 trace, 2 notice,
// 4 error, 0 any.
class AgentLog {
 public:
    explicit AgentLog(std::string path) : path_(std::move(path)) {}

    // The texts of this level since the last forget(), in the log's form. An unfinished last line is left out.
    std::vector<std::string> texts(int level = 0) const;
    // Lets later calls see only lines that come from now on.
    void forget() { start_ = file_text(path_).size(); }

    // How often a line with this text came.
    std::size_t count(std::string_view text, int level = 0) const;
    bool has(std::string_view text, int level = 0) const { return count(text, level) > 0; }
    // Lines whose text starts so; for texts that end in something that changes.
    std::size_t count_starting(std::string_view start, int level = 0) const;
    // Waits until the text has come `times` times; false when it did not.
    bool wait_for(std::string_view text, std::size_t times = 1) const {
        return eventually([&] { return count(text) >= times; });
    }
    // True when these texts came in this order, others in between allowed.
    bool in_order(const std::vector<std::string>& wanted) const;

    const std::string& path() const { return path_; }

 private:
    std::string path_;
    std::size_t start_ = 0;
};

}  // namespace dro_test

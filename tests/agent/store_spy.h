// store_spy.h - observes the agent's store calls: records writes exactly and in order, and injects failing reads and
// writes. Only calls from the agent's code pass through it, not those of the tests' own sessions. Any thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dro_test {

// Only one may exist at a time. Fields are named "TABLE.FIELD".
class StoreSpy {
 public:
    StoreSpy() { seen()->active = true; }
    StoreSpy(const StoreSpy&) = delete;
    StoreSpy& operator=(const StoreSpy&) = delete;
    ~StoreSpy() { *seen() = {}; }

    // Makes every later read and write of the field fail with `status`, without any effect.
    void fail(const std::string& field, int status) { seen()->failures[field] = status; }

    // Makes later writes of an unchanged value do nothing, as on a store that reports only changes.
    void report_changes_only() { seen()->changesOnly = true; }

    // Runs `action` on the writing thread before each write of the field.
    void before_write(const std::string& field, const std::function<void()>& action) {
        seen()->actions[field] = action;
    }

    // The writes so far whose "TABLE.FIELD=VALUE" starts with `start`, in order, including failed ones.
    std::vector<std::string> writes(std::string_view start = "") const;

    struct Seen {
        bool active = false;
        bool changesOnly = false;
        std::vector<std::string> writes;
        std::map<std::string, int> failures;
        std::map<std::string, std::function<void()>> actions;
    };
    // The state that the agent's store calls use, locked while the result exists.
    static std::shared_ptr<Seen> seen();
};

}  // namespace dro_test

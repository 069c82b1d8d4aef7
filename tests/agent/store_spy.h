// store_spy.h - the agent's calls of the store, as they pass: what it writes, to the letter and in order, and reads and
// writes that fail. Calls of the agent's code come through here, those of the tests' own sessions do not. Any thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace dro_test {

// One at a time. Fields are named as "TABLE.FIELD".
class StoreSpy {
 public:
    StoreSpy();
    StoreSpy(const StoreSpy&) = delete;
    StoreSpy& operator=(const StoreSpy&) = delete;
    ~StoreSpy();

    // From now on every read and write of the field fails with `status`, as the library fails, and does nothing.
    void fail(const std::string& field, int status);

    // From now on a write of the value that a field holds already does nothing, as on a store that reports changes
    // only.
    void report_changes_only();

    // `action` runs on the writing thread just before each write of the field.
    void before_write(const std::string& field, std::function<void()> action);

    // Writes so far whose "TABLE.FIELD=VALUE" starts with `start`, in their order, the failed ones too.
    std::vector<std::string> writes(std::string_view start = "") const;
};

}  // namespace dro_test

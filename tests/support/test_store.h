// test_store.h - a real store in a temporary folder, and a watch on what is written to it. Any thread.
#pragma once

#include <habhost.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace dro_test {

struct SessionEnd {
    void operator()(hab_session* session) const { hab_destroy(session); }
};
using Session = std::unique_ptr<hab_session, SessionEnd>;

// A fresh store with every value at its default; HAB_STORE names it while it lives. Addresses are "TABLE.FIELD" or
// "TABLE.FIELD@ROW", values texts as habhost.h spells them. Whatever the store refuses is thrown as std::runtime_error.
class TestStore {
 public:
    TestStore();
    TestStore(const TestStore&) = delete;
    TestStore& operator=(const TestStore&) = delete;
    ~TestStore();

    std::string get(const std::string& address) const;
    void set(const std::string& address, const std::string& value);
    // In one step, in this order.
    void set_all(const std::vector<std::pair<std::string, std::string>>& values);

    // True as soon as the field holds `value`; false when it did not in time.
    bool wait_for(const std::string& address, const std::string& value) const;

    // The temporary folder, for other files of the test; it goes with the store.
    const std::string& folder() const { return folder_; }
    std::string path() const { return folder_ + "/hab.db"; }

 private:
    std::string folder_;
    Session session_;
};

// Collects every write to some tables from its making on, whoever writes, in commit order.
class StoreWatch {
 public:
    explicit StoreWatch(std::initializer_list<const char*> tables);
    StoreWatch(const StoreWatch&) = delete;
    StoreWatch& operator=(const StoreWatch&) = delete;
    ~StoreWatch();

    // All writes committed before this call and not handed out before, as "TABLE.FIELD=VALUE" (with "@ROW" unless it is
    // 0). The value is read when the notice comes: of two writes to one field in quick succession both may show the
    // second.
    std::vector<std::string> take();

 private:
    static void on_notice(const char* table, int row, const char* field, void* self);

    struct State;
    State* state_;
    Session session_;
};

}  // namespace dro_test

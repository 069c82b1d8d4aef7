// test_store.h - a real store in a temporary folder. Any thread.
#pragma once

#include <habhost.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "wait.h"

namespace dro_test {

struct SessionEnd {
    void operator()(hab_session* session) const { hab_destroy(session); }
};
using Session = std::unique_ptr<hab_session, SessionEnd>;

// A temporary folder with a fresh store, every value at its default; HAB_STORE names it while it lives.
class StoreFolder {
 public:
    StoreFolder();
    StoreFolder(const StoreFolder&) = delete;
    StoreFolder& operator=(const StoreFolder&) = delete;
    ~StoreFolder();

    // For other files of the test; it goes with the store.
    const std::string& folder() const { return folder_; }
    std::string path() const { return folder_ + "/hab.db"; }
    // Runs raw SQL on the store file and gives the last value that it answers. Throws std::runtime_error.
    std::string sql(const std::string& statements) const;

 private:
    std::string folder_;
};

// The store with a session of its own. Addresses are "TABLE.FIELD" or "TABLE.FIELD@ROW", values texts as habhost.h
// spells them. Whatever the store refuses is thrown as std::runtime_error.
class TestStore : public StoreFolder {
 public:
    std::string get(const std::string& address) const;
    void set(const std::string& address, const std::string& value) { set_all({{address, value}}); }
    // In one step, in this order.
    void set_all(const std::vector<std::pair<std::string, std::string>>& values);

    // True as soon as the field holds `value`; false when it did not in time.
    bool wait_for(const std::string& address, const std::string& value) const {
        return eventually([&] { return get(address) == value; });
    }

 private:
    Session session_{hab_init()};
};

// Makes it the store of the router that tests, fuzz programs and benchmarks start from, with every log level on; the
// cloud's address is still to be set.
void set_identity(TestStore& store);

// What is in a file; nothing when there is none.
std::string file_text(const std::string& path);

}  // namespace dro_test

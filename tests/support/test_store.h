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

// A temporary folder with a new store, every value at its default. HAB_STORE names it while the object exists.
class StoreFolder {
 public:
    StoreFolder();
    StoreFolder(const StoreFolder&) = delete;
    StoreFolder& operator=(const StoreFolder&) = delete;
    ~StoreFolder();

    // For other test files; removed together with the store.
    const std::string& folder() const { return folder_; }
    std::string path() const { return folder_ + "/hab.db"; }
    // Runs raw SQL on the store file and returns the last value. Throws std::runtime_error.
    std::string sql(const std::string& statements) const;

 private:
    std::string folder_;
};

// The store with its own session. Addresses are "TABLE.FIELD" or "TABLE.FIELD@ROW", values are texts in the format of
// habhost.h. Throws std::runtime_error when the store refuses an operation.
class TestStore : public StoreFolder {
 public:
    std::string get(const std::string& address) const;
    void set(const std::string& address, const std::string& value) { set_all({{address, value}}); }
    // Atomically, in this order.
    void set_all(const std::vector<std::pair<std::string, std::string>>& values);

    // True as soon as the field has this value; false on timeout.
    bool wait_for(const std::string& address, const std::string& value) const {
        return eventually([&] { return get(address) == value; });
    }

 private:
    Session session_{hab_init()};
};

// Writes the router's values that tests, fuzz programs and benchmarks start from, with every log level enabled. The
// cloud's address is not set.
void set_identity(TestStore& store);

// The content of a file; empty when it does not exist.
std::string file_text(const std::string& path);

}  // namespace dro_test

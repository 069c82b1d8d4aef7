// bare_store.h - the store's statements, journal and bell without the store's library. One thread.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

namespace bench {

// Fields are numbers. A fresh file, removed with its folder by whoever made that.
class BareStore {
 public:
    explicit BareStore(const std::string& path);
    BareStore(const BareStore&) = delete;
    BareStore& operator=(const BareStore&) = delete;
    ~BareStore();

    // One transaction with its journal entry and its ring of the bell.
    void write(int field, int row, const std::string& value);

    // The value's length; the value itself is copied to where the last one was.
    std::size_t read(int field, int row);

 private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    Statement prepare(const char* sql);
    static void finish(const Statement& statement);

    std::string bell_;
    sqlite3* db_ = nullptr;
    std::string value_;
    Statement read_;
    Statement journal_;
    Statement write_;
    Statement begin_;
    Statement commit_;
};

// The three values that a block writes.
void write_block(BareStore& store);

}  // namespace bench

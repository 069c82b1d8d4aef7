// bare_store.h - the statements, journal and bell of the host store, on plain SQLite. One thread.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>

namespace bench {

// Fields are numbers. The first object that opens the file creates it; the owner of the folder removes it.
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
    // The same for the fields from `first` to `last` of a row, with one statement; the lengths' sum.
    std::size_t read_row(int row, int first, int last);

    // From now on it hears of what is written, in this process or another.
    void listen();
    // Waits until `changes` more have been written.
    void wait_for(std::size_t changes);

 private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    Statement prepare(const char* sql);
    static void finish(const Statement& statement);
    std::size_t take(const Statement& statement);
    // Reads the journal from where it was read last; how much was new.
    std::size_t hear();

    std::string bell_;
    sqlite3* db_ = nullptr;
    std::string value_;
    std::int64_t heard_ = 0;
    int watch_ = -1;
    Statement read_;
    Statement readRow_;
    Statement news_;
    Statement journal_;
    Statement write_;
    Statement begin_;
    Statement commit_;
};

// The values that a block writes.
void write_block(BareStore& store);

}  // namespace bench

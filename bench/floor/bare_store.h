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

    // Writes one value in a transaction, with a journal entry and a ring of the bell.
    void write(int field, int row, const std::string& value);

    // Reads a value into the buffer of the last one. Returns its length.
    std::size_t read(int field, int row);
    // Reads the fields `first` to `last` of a row with one statement. Returns the sum of their lengths.
    std::size_t read_row(int row, int first, int last);

    // Starts to watch for writes by this and other processes.
    void listen();
    // Waits for `changes` more writes.
    void wait_for(std::size_t changes);

 private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    Statement prepare(const char* sql);
    static void finish(const Statement& statement);
    std::size_t take(const Statement& statement);
    // Reads the journal from the last position. Returns the number of new entries.
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

// Writes the values of a BLOCK_CD command.
void write_block(BareStore& store);

}  // namespace bench

// sqlite.h - RAII types for SQLite connections and statements. A connection and its statements may be used by one
// thread at a time; the caller provides the lock.
#pragma once

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace hab {

using Clock = std::chrono::steady_clock;

// The longest time an operation waits for other users of the store.
inline constexpr std::chrono::seconds kPatience{2};

// An unexpected SQLite result; code() is its result code.
class SqliteError : public std::runtime_error {
 public:
    SqliteError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}
    int code() const { return code_; }
    // True when the file's content is damaged, so that trying again is useless.
    bool damage() const { return (code_ & 0xff) == SQLITE_CORRUPT || (code_ & 0xff) == SQLITE_NOTADB; }

 private:
    int code_;
};

// Maps a SQLite result code to HAB_OK, HAB_TIMEOUT or HAB_ERROR.
int statusOf(int code);

class Statement;

class Connection {
 public:
    // Opens an existing file for reading and writing. Throws SqliteError.
    explicit Connection(const std::string& path);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    // Sets the deadline of lock waits. The initial deadline is kPatience after opening.
    void waitUntil(Clock::time_point deadline) { deadline_ = deadline; }

    // Runs statements that return no rows. Throws SqliteError.
    void run(const char* sql);
    // Returns the first column of the first row. Throws SqliteError, also when there is no row.
    std::int64_t number(const char* sql);

    // Reads the file again from now on instead of keeping its pages in memory. Between transactions only.
    void forgetPages() { sqlite3_db_release_memory(db_.get()); }

    // True when the path no longer leads to the open file, also when that cannot be checked.
    bool moved() const;
    // True when the connection cannot write. SQLite falls back to reading when it cannot open the file, its log or the
    // log's index for writing, also when only descriptors are short, and never tries again.
    bool readOnly();
    // The file's absolute path, symbolic links resolved.
    std::string path() const { return sqlite3_db_filename(db_.get(), "main"); }
    std::int64_t lastRowid() const { return sqlite3_last_insert_rowid(db_.get()); }

    // Checkpoints the WAL when it has grown long. Commits do not checkpoint, so a writer never waits for one.
    void tidy();

    sqlite3* get() const { return db_.get(); }

 private:
    friend class Transaction;

    static int onBusy(void* self, int tries);
    static int onCommit(void* self, sqlite3* db, const char* name, int pages);

    struct Close {
        void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
    };
    std::unique_ptr<sqlite3, Close> db_;
    std::unique_ptr<Statement> begin_;  // all prepared for the first transaction
    std::unique_ptr<Statement> commit_;
    std::unique_ptr<Statement> rollback_;
    Clock::time_point deadline_;
    int logPages_ = 0;
};

class Statement {
 public:
    // Throws SqliteError.
    Statement(const Connection& connection, std::string_view sql);

    // Parameters are numbered from 1. Bound bytes must stay valid until the run ends.
    Statement& bind(int place, std::int64_t number);
    Statement& bindText(int place, std::string_view text);
    Statement& bindBytes(int place, std::string_view bytes);

    // Advances one row. Returns SQLITE_ROW, SQLITE_DONE or an error code.
    int step() { return sqlite3_step(statement_.get()); }
    // Advances one row. Returns false at the end. Throws SqliteError.
    bool next();
    // Runs the statement to its end. Throws SqliteError.
    void finish();
    // True once after the statement has found a changed database schema.
    bool schemaChanged() { return sqlite3_stmt_status(statement_.get(), SQLITE_STMTSTATUS_REPREPARE, 1) > 0; }
    // Ends the run and its read transaction. The bindings stay.
    void reset() { sqlite3_reset(statement_.get()); }

    // Columns are numbered from 0. Bytes are valid until the next step or reset.
    std::int64_t number(int column) const { return sqlite3_column_int64(statement_.get(), column); }
    std::string_view bytes(int column) const;
    bool isNumber(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_INTEGER; }
    bool isNull(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }

 private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// Resets a statement at the end of the scope.
class Run {
 public:
    explicit Run(Statement& statement) : statement_(statement) {}
    ~Run() { statement_.reset(); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

 private:
    Statement& statement_;
};

// A write transaction. Rolled back unless committed.
class Transaction {
 public:
    // The constructor and commit() throw SqliteError and then leave the store unchanged.
    explicit Transaction(Connection& connection);
    void commit();

    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

 private:
    Connection& connection_;
};

}  // namespace hab

// sqlite.h - owners of SQLite's connections and statements. A connection and its statements serve one thread at a time;
// the caller provides the lock.
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

// An operation waits at most this long for other users of the store.
inline constexpr std::chrono::seconds kPatience{2};

// An unexpected answer of SQLite; code() is its result code.
class SqliteError : public std::runtime_error {
 public:
    SqliteError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}
    int code() const { return code_; }

 private:
    int code_;
};

// The HAB_ status that a SQLite result code means: done, busy or failed.
int statusOf(int code);

class Statement;

class Connection {
 public:
    // Opens an existing file for reading and writing. Throws SqliteError.
    explicit Connection(const std::string& path);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    // Until when statements wait for locks that others hold; kPatience from now at first.
    void waitUntil(Clock::time_point deadline) { deadline_ = deadline; }

    // Runs statements that answer nothing. Throws SqliteError.
    void run(const char* sql);
    // The first column of the first row. Throws SqliteError, also when there is no row.
    std::int64_t number(const char* sql);

    // True when the path no longer leads to the file that is open here.
    bool moved() const;
    bool readOnly() const { return sqlite3_db_readonly(db_.get(), "main") != 0; }
    // The file's absolute path, links resolved.
    std::string path() const { return sqlite3_db_filename(db_.get(), "main"); }
    std::int64_t lastRowid() const { return sqlite3_last_insert_rowid(db_.get()); }

    // Copies the log of recent commits into the main file when it has grown long. Commits leave that to their caller,
    // so that nobody waits for it who need not.
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
    std::unique_ptr<Statement> begin_;  // these two are prepared for the first transaction
    std::unique_ptr<Statement> commit_;
    Clock::time_point deadline_;
    int logPages_ = 0;
};

class Statement {
 public:
    // Throws SqliteError.
    Statement(const Connection& connection, std::string_view sql);

    // Parameters count from 1. Bound bytes must stay until the run ends.
    Statement& bind(int place, std::int64_t number);
    Statement& bindText(int place, std::string_view text);
    Statement& bindBytes(int place, std::string_view bytes);

    // One row further: SQLITE_ROW, SQLITE_DONE or what went wrong.
    int step() { return sqlite3_step(statement_.get()); }
    // One row further; false at the end. Throws SqliteError.
    bool next();
    // Runs it from start to end. Throws SqliteError.
    void finish();
    // Ends the run and with it the read transaction; the bindings stay.
    void reset() { sqlite3_reset(statement_.get()); }

    // Columns count from 0; bytes are valid until the next step or reset.
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

// Ends a statement's run when its scope is left.
class Run {
 public:
    explicit Run(Statement& statement) : statement_(statement) {}
    ~Run() { statement_.reset(); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

 private:
    Statement& statement_;
};

// A write transaction, undone unless it was committed.
class Transaction {
 public:
    // Both throw SqliteError; the store stays as it was then.
    explicit Transaction(Connection& connection);
    void commit();

    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

 private:
    Connection& connection_;
    bool open_ = true;
};

}  // namespace hab

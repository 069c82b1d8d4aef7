#include "sqlite.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "hablib.h"

namespace hab {

namespace {

// Length of the WAL, in pages of 4 KiB, that triggers a checkpoint.
constexpr int kTidyPages = 1000;

// Locks are held for about ten microseconds. Retry soon at first, then less often.
constexpr std::chrono::microseconds kFirstPause{50};
constexpr std::chrono::microseconds kLongestPause{10'000};

void check(sqlite3* db, int code) {
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) {
        throw SqliteError(code, sqlite3_errmsg(db));
    }
}

}  // namespace

int statusOf(int code) {
    switch (code & 0xff) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return HAB_OK;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            return HAB_TIMEOUT;
        default:
            return HAB_ERROR;
    }
}

Connection::Connection(const std::string& path) : deadline_(Clock::now() + kPatience) {
    sqlite3* db = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    db_.reset(db);
    check(db, code);
    sqlite3_busy_handler(db, onBusy, this);
    // A killed process loses nothing. A power failure may lose the last commits; in return, flash wear is lower.
    run("PRAGMA synchronous = NORMAL");
    sqlite3_wal_hook(db, onCommit, this);
}

Connection::~Connection() = default;

void Connection::run(const char* sql) {
    check(db_.get(), sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr));
}

std::int64_t Connection::number(const char* sql) {
    Statement statement(*this, sql);
    if (!statement.next()) {
        throw SqliteError(SQLITE_DONE, "no row");
    }
    return statement.number(0);
}

bool Connection::moved() const {
    int moved = 0;
    sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return moved != 0;
}

bool Connection::readOnly() {
    const Clock::time_point deadline = std::exchange(deadline_, Clock::now());  // a busy store is not read-only
    const int code = sqlite3_exec(db_.get(), "BEGIN IMMEDIATE; ROLLBACK", nullptr, nullptr, nullptr);
    deadline_ = deadline;
    if (statusOf(code) == HAB_ERROR && (code & 0xff) != SQLITE_READONLY) {
        check(db_.get(), code);
    }
    // BEGIN IMMEDIATE ignores the lock of a file that is open for reading only.
    return (code & 0xff) == SQLITE_READONLY || sqlite3_db_readonly(db_.get(), "main") != 0;
}

void Connection::tidy() {
    if (logPages_ >= kTidyPages) {
        logPages_ = 0;
        sqlite3_wal_checkpoint_v2(db_.get(), "main", SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    }
}

int Connection::onBusy(void* self, int tries) {
    const Clock::duration left = static_cast<Connection*>(self)->deadline_ - Clock::now();
    if (left <= Clock::duration::zero()) {
        return 0;
    }
    const auto pause = std::min(kFirstPause * (1 << std::min(tries, 10)), kLongestPause);
    std::this_thread::sleep_for(std::min<Clock::duration>(left, pause));
    return 1;
}

int Connection::onCommit(void* self, sqlite3* /*db*/, const char* /*name*/, int pages) {
    static_cast<Connection*>(self)->logPages_ = pages;
    return SQLITE_OK;
}

Statement::Statement(const Connection& connection, std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(connection.get(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    statement_.reset(statement);
    check(connection.get(), code);
}

Statement& Statement::bind(int place, std::int64_t number) {
    sqlite3_bind_int64(statement_.get(), place, number);
    return *this;
}

Statement& Statement::bindText(int place, std::string_view text) {
    sqlite3_bind_text(statement_.get(), place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    return *this;
}

Statement& Statement::bindBytes(int place, std::string_view bytes) {
    sqlite3_bind_blob(statement_.get(), place, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    return *this;
}

bool Statement::next() {
    const int code = step();
    check(sqlite3_db_handle(statement_.get()), code);
    return code == SQLITE_ROW;
}

void Statement::finish() {
    const Run run(*this);
    while (next()) {
    }
}

std::string_view Statement::bytes(int column) const {
    const auto* start = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
    return {start, start == nullptr ? 0U : static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

Transaction::Transaction(Connection& connection) : connection_(connection) {
    if (!connection.rollback_) {
        connection.begin_ = std::make_unique<Statement>(connection, "BEGIN IMMEDIATE");
        connection.commit_ = std::make_unique<Statement>(connection, "COMMIT");
        connection.rollback_ = std::make_unique<Statement>(connection, "ROLLBACK");  // needs no memory when it runs
    }
    connection.begin_->finish();
}

void Transaction::commit() {
    connection_.commit_->finish();
}

Transaction::~Transaction() {
    if (sqlite3_get_autocommit(connection_.get()) == 0) {  // SQLite rolls back after some failures itself
        connection_.rollback_->step();
        connection_.rollback_->reset();
    }
}

}  // namespace hab

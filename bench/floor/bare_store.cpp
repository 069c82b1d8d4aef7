#include "floor/bare_store.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace bench {

BareStore::BareStore(const std::string& path) : bell_(path + ".bell") {
    if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK ||
        sqlite3_exec(db_,
                     "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
                     "CREATE TABLE IF NOT EXISTS value(row INTEGER, field INTEGER, value, seq INTEGER,"
                     " PRIMARY KEY(row, field)) WITHOUT ROWID;"
                     "CREATE TABLE IF NOT EXISTS journal(seq INTEGER PRIMARY KEY, field INTEGER, row INTEGER)",
                     nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error("no bare store");
    }
    read_ = prepare("SELECT value FROM value WHERE row = ?1 AND field = ?2");
    readRow_ = prepare("SELECT value FROM value WHERE row = ?1 AND field BETWEEN ?2 AND ?3");
    news_ = prepare("SELECT seq, field, row FROM journal WHERE seq > ?1 ORDER BY seq");
    journal_ = prepare("INSERT INTO journal(field, row) VALUES(?1, ?2)");
    write_ = prepare("INSERT OR REPLACE INTO value(field, row, value, seq) VALUES(?1, ?2, ?3, ?4)");
    begin_ = prepare("BEGIN IMMEDIATE");
    commit_ = prepare("COMMIT");
}

BareStore::~BareStore() {
    for (Statement* statement : {&read_, &readRow_, &news_, &journal_, &write_, &begin_, &commit_}) {
        statement->reset();
    }
    sqlite3_close(db_);
    if (watch_ >= 0) {
        close(watch_);
    }
}

void BareStore::write(int field, int row, const std::string& value) {
    finish(begin_);
    sqlite3_bind_int(journal_.get(), 1, field);
    sqlite3_bind_int(journal_.get(), 2, row);
    finish(journal_);
    sqlite3_bind_int(write_.get(), 1, field);
    sqlite3_bind_int(write_.get(), 2, row);
    sqlite3_bind_text(write_.get(), 3, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    sqlite3_bind_int64(write_.get(), 4, sqlite3_last_insert_rowid(db_));
    finish(write_);
    const int bell = open(bell_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    finish(commit_);
    close(bell);
}

std::size_t BareStore::read(int field, int row) {
    sqlite3_bind_int(read_.get(), 1, row);
    sqlite3_bind_int(read_.get(), 2, field);
    return take(read_);
}

std::size_t BareStore::read_row(int row, int first, int last) {
    sqlite3_bind_int(readRow_.get(), 1, row);
    sqlite3_bind_int(readRow_.get(), 2, first);
    sqlite3_bind_int(readRow_.get(), 3, last);
    return take(readRow_);
}

void BareStore::listen() {
    watch_ = inotify_init1(IN_CLOEXEC);
    close(open(bell_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));  // no write may have created it yet
    if (inotify_add_watch(watch_, bell_.c_str(), IN_CLOSE_WRITE) < 0) {
        throw std::runtime_error("no watch on the bare store");
    }
    hear();
}

void BareStore::wait_for(std::size_t changes) {
    std::array<char, 4096> events;
    for (std::size_t heard = 0; heard < changes; heard += hear()) {
        if (::read(watch_, events.data(), events.size()) < 0) {
            throw std::runtime_error("no notice of the bare store");
        }
    }
}

std::size_t BareStore::hear() {
    std::size_t changes = 0;
    sqlite3_bind_int64(news_.get(), 1, heard_);
    while (sqlite3_step(news_.get()) == SQLITE_ROW) {
        heard_ = sqlite3_column_int64(news_.get(), 0);
        ++changes;
    }
    sqlite3_reset(news_.get());
    return changes;
}

BareStore::Statement BareStore::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr);
    return Statement(statement);
}

std::size_t BareStore::take(const Statement& statement) {
    std::size_t size = 0;
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
        value_.assign(reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0)),
                      static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), 0)));
        size += value_.size();
    }
    sqlite3_reset(statement.get());
    return size;
}

void BareStore::finish(const Statement& statement) {
    const int result = sqlite3_step(statement.get());
    sqlite3_reset(statement.get());
    if (result != SQLITE_DONE) {
        throw std::runtime_error(std::string("the bare store failed: ") + sqlite3_errstr(result));
    }
}

void write_block(BareStore& store) {
    constexpr int kFeature = 20;
    constexpr int kBlockMac = 21;
    constexpr int kTrigger = 22;
    store.write(kFeature, 0, "7");
    store.write(kBlockMac, 0, "020053");
    store.write(kTrigger, 0, "1");
}

}  // namespace bench

#include "floor/bare_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

namespace bench {

BareStore::BareStore(const std::string& path) : bell_(path + ".bell") {
    if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK ||
        sqlite3_exec(db_,
                     "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
                     "CREATE TABLE value(field INTEGER, row INTEGER, value, seq INTEGER, PRIMARY KEY(field, row))"
                     " WITHOUT ROWID;"
                     "CREATE TABLE journal(seq INTEGER PRIMARY KEY, field INTEGER, row INTEGER)",
                     nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error("no bare store");
    }
    read_ = prepare("SELECT value FROM value WHERE field = ?1 AND row = ?2");
    journal_ = prepare("INSERT INTO journal(field, row) VALUES(?1, ?2)");
    write_ = prepare("INSERT OR REPLACE INTO value VALUES(?1, ?2, ?3, ?4)");
    begin_ = prepare("BEGIN IMMEDIATE");
    commit_ = prepare("COMMIT");
}

BareStore::~BareStore() {
    for (Statement* statement : {&read_, &journal_, &write_, &begin_, &commit_}) {
        statement->reset();
    }
    sqlite3_close(db_);
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
    sqlite3_bind_int(read_.get(), 1, field);
    sqlite3_bind_int(read_.get(), 2, row);
    value_.clear();
    if (sqlite3_step(read_.get()) == SQLITE_ROW) {
        value_.assign(reinterpret_cast<const char*>(sqlite3_column_text(read_.get(), 0)),
                      static_cast<std::size_t>(sqlite3_column_bytes(read_.get(), 0)));
    }
    sqlite3_reset(read_.get());
    return value_.size();
}

BareStore::Statement BareStore::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr);
    return Statement(statement);
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

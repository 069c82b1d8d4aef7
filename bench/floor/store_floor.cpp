// What the store's work costs without its library: a statement for each value, journal and bell, in a bare program.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "writer_process.h"

namespace {

class Folder {
 public:
    Folder() {
        if (mkdtemp(path_.data()) == nullptr) {
            std::abort();
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    std::string store() const { return path_ + "/bare.db"; }
    std::string bell() const { return store() + ".bell"; }

 private:
    std::string path_ = "/tmp/floorXXXXXX";
};

class Bare {
 public:
    explicit Bare(const Folder& folder) : bell_(folder.bell()) {
        sqlite3_open(folder.store().c_str(), &db_);
        run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
            "CREATE TABLE IF NOT EXISTS value(field INTEGER, row INTEGER, value, seq INTEGER, PRIMARY KEY(field, row)) "
            "WITHOUT ROWID;"
            "CREATE TABLE IF NOT EXISTS journal(seq INTEGER PRIMARY KEY, field INTEGER, row INTEGER)");
        read_ = prepare("SELECT value FROM value WHERE field = ?1 AND row = ?2");
        journal_ = prepare("INSERT INTO journal(field, row) VALUES(?1, ?2)");
        write_ = prepare("INSERT OR REPLACE INTO value VALUES(?1, ?2, ?3, ?4)");
        begin_ = prepare("BEGIN IMMEDIATE");
        commit_ = prepare("COMMIT");
        news_ = prepare("SELECT seq, field, row FROM journal WHERE seq > ?1 ORDER BY seq");
    }
    ~Bare() {
        for (sqlite3_stmt* statement : {read_, journal_, write_, begin_, commit_, news_}) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(db_);
    }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    void write(int field, int value) {
        step(begin_);
        sqlite3_bind_int(journal_, 1, field);
        sqlite3_bind_int(journal_, 2, 0);
        step(journal_);
        sqlite3_bind_int(write_, 1, field);
        sqlite3_bind_int(write_, 2, 0);
        sqlite3_bind_int(write_, 3, value);
        sqlite3_bind_int64(write_, 4, sqlite3_last_insert_rowid(db_));
        step(write_);
        const int bell = open(bell_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        step(commit_);
        close(bell);
    }

    int read(int field) {
        sqlite3_bind_int(read_, 1, field);
        sqlite3_bind_int(read_, 2, 0);
        sqlite3_step(read_);
        const int value = sqlite3_column_int(read_, 0);
        sqlite3_reset(read_);
        return value;
    }

    void fill() {
        for (int field = 0; field < 200; ++field) {
            write(field, field);
        }
    }

    // Reads the journal from where it was read last; true when there was something new.
    bool hear() {
        const std::int64_t before = heard_;
        sqlite3_bind_int64(news_, 1, heard_);
        while (sqlite3_step(news_) == SQLITE_ROW) {
            heard_ = sqlite3_column_int64(news_, 0);
        }
        sqlite3_reset(news_);
        return heard_ != before;
    }

 private:
    void run(const char* sql) { sqlite3_exec(db_, sql, nullptr, nullptr, nullptr); }
    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr);
        return statement;
    }
    static void step(sqlite3_stmt* statement) {
        sqlite3_step(statement);
        sqlite3_reset(statement);
    }

    std::string bell_;
    std::int64_t heard_ = 0;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* read_ = nullptr;
    sqlite3_stmt* journal_ = nullptr;
    sqlite3_stmt* write_ = nullptr;
    sqlite3_stmt* begin_ = nullptr;
    sqlite3_stmt* commit_ = nullptr;
    sqlite3_stmt* news_ = nullptr;
};

void storeWrite(benchmark::State& state) {
    const Folder folder;
    Bare bare(folder);
    bare.fill();
    int value = 0;
    while (state.KeepRunning()) {
        bare.write(7, ++value);
    }
}
BENCHMARK(storeWrite)->Iterations(20'000);

void storeRead(benchmark::State& state) {
    const Folder folder;
    Bare bare(folder);
    bare.fill();
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(bare.read(7));
    }
}
BENCHMARK(storeRead);

void storeOpen(benchmark::State& state) {
    const Folder folder;
    Bare bare(folder);
    bare.fill();
    while (state.KeepRunning()) {
        sqlite3* db = nullptr;
        sqlite3_open(folder.store().c_str(), &db);
        sqlite3_exec(db, "PRAGMA synchronous = NORMAL; SELECT value FROM value WHERE field = 7 AND row = 0", nullptr,
                     nullptr, nullptr);
        sqlite3_close(db);
    }
}
BENCHMARK(storeOpen);

void storeNotice(benchmark::State& state) {
    const Folder folder;
    std::unique_ptr<Bare> theirs;
    bench::WriterProcess writer([&] {
        if (!theirs) {
            theirs = std::make_unique<Bare>(folder);
        }
        theirs->write(7, 1);
    });
    Bare bare(folder);
    bare.fill();
    bare.hear();
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, folder.bell().c_str(), IN_CLOSE_WRITE);
    while (state.KeepRunning()) {
        const auto begin = writer.order();
        std::array<char, 4096> events;
        do {
            if (read(watch, events.data(), events.size()) < 0) {
                std::abort();
            }
        } while (!bare.hear());
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    close(watch);
}
BENCHMARK(storeNotice)->UseManualTime()->Iterations(5'000);

}  // namespace

BENCHMARK_MAIN();

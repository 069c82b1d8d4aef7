// What the store's work costs without the store's library: the same statements, journal and bell, in a bare program.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

class Bare {
 public:
    Bare() {
        std::string folder = "/tmp/floorXXXXXX";
        folder_ = mkdtemp(folder.data());
        path_ = folder_ + "/bare.db";
        sqlite3_open(path_.c_str(), &db_);
        run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
            "CREATE TABLE value(field INTEGER, row INTEGER, value, seq INTEGER, PRIMARY KEY(field, row)) WITHOUT ROWID;"
            "CREATE TABLE journal(seq INTEGER PRIMARY KEY, field INTEGER, row INTEGER)");
        read_ = prepare("SELECT value FROM value WHERE field = ?1 AND row = ?2");
        journal_ = prepare("INSERT INTO journal(field, row) VALUES(?1, ?2)");
        write_ = prepare("INSERT OR REPLACE INTO value VALUES(?1, ?2, ?3, ?4)");
        begin_ = prepare("BEGIN IMMEDIATE");
        commit_ = prepare("COMMIT");
        for (int field = 0; field < 200; ++field) {
            write(field, field);
        }
    }
    ~Bare() {
        for (sqlite3_stmt* statement : {read_, journal_, write_, begin_, commit_}) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(db_);
        std::filesystem::remove_all(folder_);
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
        const int bell = open((path_ + ".bell").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
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

    const std::string& path() const { return path_; }

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

    std::string folder_;
    std::string path_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* read_ = nullptr;
    sqlite3_stmt* journal_ = nullptr;
    sqlite3_stmt* write_ = nullptr;
    sqlite3_stmt* begin_ = nullptr;
    sqlite3_stmt* commit_ = nullptr;
};

void storeWrite(benchmark::State& state) {
    Bare bare;
    int value = 0;
    while (state.KeepRunning()) {
        bare.write(7, ++value);
    }
}
BENCHMARK(storeWrite)->Iterations(20'000);

void storeRead(benchmark::State& state) {
    Bare bare;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(bare.read(7));
    }
}
BENCHMARK(storeRead);

void storeOpen(benchmark::State& state) {
    const Bare bare;
    while (state.KeepRunning()) {
        sqlite3* db = nullptr;
        sqlite3_open(bare.path().c_str(), &db);
        sqlite3_exec(db, "PRAGMA synchronous = NORMAL; SELECT value FROM value WHERE field = 7 AND row = 0", nullptr,
                     nullptr, nullptr);
        sqlite3_close(db);
    }
}
BENCHMARK(storeOpen);

}  // namespace

BENCHMARK_MAIN();

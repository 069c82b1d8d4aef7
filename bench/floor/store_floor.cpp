// The store's operations on plain SQLite: one statement per value, the journal and the bell.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "floor/bare_store.h"
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

 private:
    std::string path_ = "/tmp/floorXXXXXX";
};

constexpr int kField = 7;

void fill(bench::BareStore& bare) {
    for (int field = 0; field < 200; ++field) {
        bare.write(field, 0, std::to_string(field));
    }
}

void storeWrite(benchmark::State& state) {
    const Folder folder;
    bench::BareStore bare(folder.store());
    fill(bare);
    int value = 0;
    while (state.KeepRunning()) {
        bare.write(kField, 0, std::to_string(++value));
    }
}
BENCHMARK(storeWrite)->Iterations(20'000);

void storeRead(benchmark::State& state) {
    const Folder folder;
    bench::BareStore bare(folder.store());
    fill(bare);
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(bare.read(kField, 0));
    }
}
BENCHMARK(storeRead);

void storeNotice(benchmark::State& state) {
    const Folder folder;
    std::unique_ptr<bench::BareStore> theirs;
    bench::WriterProcess writer([&] {
        if (!theirs) {
            theirs = std::make_unique<bench::BareStore>(folder.store());
        }
        theirs->write(kField, 0, "1");
    });
    bench::BareStore bare(folder.store());
    fill(bare);
    bare.listen();
    while (state.KeepRunning()) {
        const auto begin = writer.order();
        bare.wait_for(1);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
}
BENCHMARK(storeNotice)->UseManualTime()->Iterations(5'000);

}  // namespace

BENCHMARK_MAIN();

// Cost of the host store and the host log. bench/floor/store_floor.cpp does the same work on plain SQLite.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <semaphore>
#include <string>
#include <system_error>
#include <utility>

#include "habdynlog.h"
#include "habhost.h"
#include "writer_process.h"

namespace {

constexpr const char* kTable = "DALHConfig";
constexpr const char* kField = "ProcessID";

using Session = std::unique_ptr<hab_session, decltype(&hab_destroy)>;

// Creates a folder for a store and sets HAB_STORE to it.
std::string newFolder() {
    std::string folder = "/tmp/benchXXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        std::abort();
    }
    setenv("HAB_STORE", (folder + "/hab.db").c_str(), 1);
    return folder;
}

class Store {
 public:
    explicit Store(std::string folder = newFolder()) : folder_(std::move(folder)) {
        hab_host_create((folder_ + "/hab.db").c_str(), false);
        session_.reset(hab_init());
        for (std::uint32_t value = 0; value < 200; ++value) {
            hab_set_uint(session_.get(), "DALHNotifyNDN", 0, "Index", value);
        }
        hab_set_uint(session_.get(), kTable, 0, kField, 1);
    }
    ~Store() {
        session_.reset();
        // The session's delivery thread may exit after the removal and create a bell file, which remains.
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    hab_session* session() const { return session_.get(); }

 private:
    std::string folder_;
    Session session_{nullptr, hab_destroy};
};

void storeWrite(benchmark::State& state) {
    const Store store;
    std::uint32_t value = 0;
    while (state.KeepRunning()) {
        hab_set_uint(store.session(), kTable, 0, kField, ++value);
    }
}
BENCHMARK(storeWrite)->Iterations(20'000);

void storeRead(benchmark::State& state) {
    const Store store;
    std::uint32_t value = 0;
    while (state.KeepRunning()) {
        hab_get_uint(store.session(), kTable, 0, kField, &value);
    }
}
BENCHMARK(storeRead);

// From the start of a write in one process to the handler in another. A pipe triggers the writer, which returns the
// write's start time.
void storeNotice(benchmark::State& state) {
    std::string folder = newFolder();
    Session session(nullptr, hab_destroy);
    bench::WriterProcess writer([&session] {
        if (!session) {
            session.reset(hab_init());
        }
        hab_set_uint(session.get(), kTable, 0, kField, 1);
    });
    const Store store(std::move(folder));
    struct Arrival {
        std::binary_semaphore seen{0};
        std::chrono::steady_clock::time_point time;
    } arrival;
    const auto handler = [](const char*, int, const char*, void* context) {
        auto* mine = static_cast<Arrival*>(context);
        mine->time = std::chrono::steady_clock::now();
        mine->seen.release();
    };
    hab_subscribe_cb(store.session(), handler, &arrival);
    hab_subscribe(store.session(), kTable, 1);
    while (state.KeepRunning()) {
        const auto begin = writer.order();
        arrival.seen.acquire();
        state.SetIterationTime(std::chrono::duration<double>(arrival.time - begin).count());
    }
}
BENCHMARK(storeNotice)->UseManualTime()->Iterations(5'000);

// The lines go to standard error; redirect it.
void logLine(benchmark::State& state) {
    dynlog_lib_init();
    while (state.KeepRunning()) {
        log_printf(2, "bench/store_bench.cpp", 1, "a line with a number %d and a text %s\n", 42, "FETCH_CD");
    }
    dynlog_lib_uninit();
}
BENCHMARK(logLine);

}  // namespace

BENCHMARK_MAIN();

// What the host store and the host log cost their callers. bench/floor/store_floor.cpp does the same work bare.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
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

namespace {

constexpr const char* kTable = "DALHConfig";
constexpr const char* kField = "ProcessID";

using Session = std::unique_ptr<hab_session, decltype(&hab_destroy)>;

// A folder of its own for a store, which HAB_STORE names from now on.
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
        // Its notices may end a moment later and ring once more: what is left then is the system's to clear.
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

void storeOpen(benchmark::State& state) {
    const Store store;
    while (state.KeepRunning()) {
        const Session session(hab_init(), hab_destroy);
        std::uint32_t value = 0;
        hab_get_uint(session.get(), kTable, 0, kField, &value);
    }
}
BENCHMARK(storeOpen);

// From before a write in one process to the handler in another. The writer is told by a pipe to write, and sends the
// time at which it began.
void storeNotice(benchmark::State& state) {
    std::string folder = newFolder();
    int orders[2];
    int times[2];
    if (pipe(orders) != 0 || pipe(times) != 0) {
        state.SkipWithError("no pipes");
        return;
    }
    const pid_t writer = fork();  // before a session is open: sessions are not for children
    if (writer == 0) {
        close(orders[1]);
        Session session(nullptr, hab_destroy);
        char order = 0;
        while (read(orders[0], &order, 1) == 1) {
            if (!session) {
                session.reset(hab_init());
            }
            const auto begin = std::chrono::steady_clock::now();
            hab_set_uint(session.get(), kTable, 0, kField, 1);
            if (write(times[1], &begin, sizeof begin) != sizeof begin) {
                break;
            }
        }
        _exit(0);
    }
    close(orders[0]);
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
        std::chrono::steady_clock::time_point begin;
        if (write(orders[1], "w", 1) != 1 || read(times[0], &begin, sizeof begin) != sizeof begin) {
            state.SkipWithError("the writer ended");
            break;
        }
        arrival.seen.acquire();
        state.SetIterationTime(std::chrono::duration<double>(arrival.time - begin).count());
    }
    close(orders[1]);
    waitpid(writer, nullptr, 0);
}
BENCHMARK(storeNotice)->UseManualTime()->Iterations(5'000);

// The lines go to standard error, which whoever runs this sends to a file or to nowhere.
void logLine(benchmark::State& state) {
    dynlog_lib_init();
    while (state.KeepRunning()) {
        log_printf(2, "bench/store_bench.cpp", 1, "a line with a number %d and a text %s\n", 42, "FETCH_CD");
    }
    dynlog_lib_uninit();
}
BENCHMARK(logLine);

void logMasked(benchmark::State& state) {
    while (state.KeepRunning()) {
        log_printf(1, "bench/store_bench.cpp", 1, "a line with a number %d and a text %s\n", 42, "FETCH_CD");
    }
}
BENCHMARK(logMasked);

}  // namespace

BENCHMARK_MAIN();

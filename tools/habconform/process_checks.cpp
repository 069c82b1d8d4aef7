// Error texts, sessions, threads, the sorted set, signals and the log.
#include <fcntl.h>
#include <habdynlog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "check.h"
#include "watch.h"

namespace habconform {

namespace {

constexpr unsigned kThreads = 8;

std::string errorTexts() {
    for (const int status : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 42, -1, INT_MAX, INT_MIN}) {
        require(hab_error_string(status) != nullptr, "null for " + std::to_string(status));
    }
    return "";
}

std::string sessions() {
    constexpr int kSessions = 20;
    const auto entries = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    };
    const auto use = [] {
        std::uint32_t number = 0;
        hab_get_uint(openSession().get(), "JorvagentCfg", 0, "jorv_agent_connected", &number);
    };
    use();  // the library may open something once for the process
    const auto descriptors = entries("/proc/self/fd");
    const auto threads = entries("/proc/self/task");
    for (int i = 0; i < kSessions; ++i) {
        use();
    }
    require(eventually([&] { return entries("/proc/self/fd") <= descriptors; }), "more descriptors after 20 sessions");
    require(eventually([&] { return entries("/proc/self/task") <= threads; }), "more threads after 20 sessions");
    return "";
}

std::string threads() {
    constexpr unsigned kRounds = 10;
    const Session session = openSession();
    const std::vector<Place>& places = sequencePlaces();
    onThreads(kThreads, [&](unsigned i) {
        const Place& place = places[i % places.size()];
        for (unsigned round = 0; round < kRounds; ++round) {
            const std::string value = numbered(*place.field, freshNumber() + round);
            set(session.get(), place, value);
            const std::string now = get(session.get(), place);
            require(now == value || places.size() < kThreads, textOf(place) + " has the value of another thread");
        }
    });
    return "";
}

std::string sortedSetOrder() {
    using Key = const char*;
    std::array<Key, 3> keys{"b.b", "a.a", "c.c"};
    const Key equal = "a.a";
    const Key other = "d.d";
    sortedSet* set = sortedSet_init(2, [](const void* left, const void* right) {
        return std::strcmp(*static_cast<const Key*>(left), *static_cast<const Key*>(right));
    });
    require(set != nullptr, "sortedSet_init returned null");
    for (Key& key : keys) {
        require(sortedSet_add(set, &key) == 0, "an entry could not be added");
    }
    require(sortedSet_find(set, &equal) == &keys[1], "the entry that compares equal was not found");
    require(sortedSet_find(set, &other) == nullptr, "an entry was found that was never added");
    for (Key* smallest : {&keys[1], &keys[0], &keys[2]}) {
        require(sortedSet_first(set) == smallest, "the first entry is not the smallest");
        sortedSet_rem(set, smallest);
    }
    require(sortedSet_first(set) == nullptr, "removed entries are still there");
    sortedSet_destroy(set);
    return "";
}

// The agent blocks its signals before it opens the store; their handlers run on its main thread only.
std::string signals() {
    constexpr std::array kSignals{SIGUSR1, SIGUSR2, SIGALRM};
    sigset_t blocked;
    sigemptyset(&blocked);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    for (const int signal : kSignals) {
        sigaddset(&blocked, signal);
        sigaction(signal, &action, nullptr);
    }
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    // The handler runs on a library thread.
    const auto isBlocked = [kSignals](hab_session*, const Notice&) {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        for (const int signal : kSignals) {
            require(sigismember(&mask, signal) == 1, std::string(strsignal(signal)) + " is not blocked in a handler");
        }
    };
    const Watch watch(isBlocked);
    watch.write(freshNumber());
    watch.await(1);
    for (const int signal : kSignals) {
        sigaction(signal, nullptr, &action);
        require(action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN,
                std::string("the handler of ") + strsignal(signal) + " was replaced");
    }
    return "";
}

// Does not check where the lines are written. Some platforms write them to standard error, which is redirected.
void logAll() {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDERR_FILENO);
    close(null);
    const std::string longText(5000, 'x');
    for (const int level : {1, 2, 4}) {
        log_printf(level, __FILE__, __LINE__, "%s %d\n", "habconform", level);
        log_printf(level, __FILE__, __LINE__, "%s", longText.c_str());
    }
}

void startLog() {
    require(dynlog_lib_init() == 0, "dynlog_lib_init failed");
    set_log_level(0, "Droagent", "habconform");
    logAll();
}

std::string logEarly() {
    logAll();
    return "";
}

std::string logLate() {
    startLog();
    dynlog_lib_uninit();
    logAll();
    return "";
}

std::string logThreads() {
    constexpr int kRounds = 20;
    startLog();
    onThreads(kThreads, [](unsigned thread) {
        for (int round = 0; round < kRounds; ++round) {
            logAll();
        }
        if (thread == 0) {
            set_log_level(1, "Droagent", "habconform");
        }
    });
    dynlog_lib_uninit();
    return "";
}

}  // namespace

const std::vector<Check> kProcessChecks{
    {"error-texts", Check::reads, "hab_error_string returns a text for every number",
     "it crashes when it logs an error", errorTexts},
    {"sessions", Check::reads, "a closed session leaves no descriptor and no thread",
     "each registration opens eight sessions, until no descriptor is left", sessions},
    {"threads", Check::writes, "eight threads use one handle at once",
     "commands, events and monitors fail when they meet", threads},
    {"sorted-set", Check::reads, "the sorted set finds, orders and removes its entries",
     "notices find no handler, or a failed start hangs", sortedSetOrder},
    {"signals", Check::writes, "the library keeps the handlers of SIGUSR1, SIGUSR2 and SIGALRM, and does not take them",
     "a stop or the daily list does not happen, or its handler interrupts the library", signals},
    {"log-early", Check::reads, "log_printf can be called before dynlog_lib_init",
     "its start crashes instead of reporting a second agent or a missing store", logEarly},
    {"log-late", Check::reads, "log_printf can be called after dynlog_lib_uninit",
     "its stop crashes: threads still log", logLate},
    {"log-threads", Check::reads, "log_printf can be called by eight threads at once, also during a reload",
     "it crashes or hangs under load", logThreads},
};

}  // namespace habconform

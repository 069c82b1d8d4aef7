#include "dro_stop.h"

#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace dro {
namespace {

std::atomic<int> g_signalWatch{-1};  // never read, so a pending SIGUSR1 remains for its handler

// One descriptor for the life of the process: threads that outlive main may still poll it.
int request_descriptor() {
    static const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return descriptor;
}

// Returns true when a stop is requested within `timeout`. A pending signal becomes a request as soon as it is seen,
// because the main thread may consume the signal before a thread's next poll.
bool stop_within(const timespec& timeout) {
    std::array<pollfd, 2> watched = stop_descriptors();
    if (ppoll(watched.data(), watched.size(), &timeout, nullptr) <= 0) {
        return false;
    }
    request_stop();
    return true;
}

}  // namespace

std::array<pollfd, 2> stop_descriptors() {
    return {pollfd{g_signalWatch.load(), POLLIN, 0}, pollfd{request_descriptor(), POLLIN, 0}};
}

int block_signals_and_watch() {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigset_t watched = blocked;
    sigaddset(&blocked, SIGUSR2);
    sigaddset(&blocked, SIGALRM);
    const int result = pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    if (result != 0) {
        return result;
    }
    g_signalWatch = signalfd(g_signalWatch.load(), &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    return g_signalWatch < 0 ? errno : 0;
}

void request_stop() {
    eventfd_write(request_descriptor(), 1);
}

bool stop_requested() {
    const timespec now{0, 0};
    return stop_within(now);
}

bool pause_for(std::chrono::microseconds duration) {
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + duration;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - steady_clock::now());
        if (left.count() <= 0) {
            return !stop_requested();
        }
        const timespec timeout{static_cast<time_t>(left.count() / 1'000'000'000),
                               static_cast<long>(left.count() % 1'000'000'000)};
        if (stop_within(timeout)) {
            return false;
        }
    }
}

}  // namespace dro

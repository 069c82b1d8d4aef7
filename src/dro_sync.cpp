#include "dro_sync.h"

#include <cerrno>
#include <ctime>

namespace dro {
namespace {

timespec to_timespec(std::chrono::steady_clock::time_point moment) {
    using std::chrono::duration_cast;
    const auto since = moment.time_since_epoch();
    const auto seconds = duration_cast<std::chrono::seconds>(since);
    return {static_cast<time_t>(seconds.count()),
            static_cast<long>(duration_cast<std::chrono::nanoseconds>(since - seconds).count())};
}

}  // namespace

Condition::Condition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
}

int Condition::wait_until(Mutex& mutex, std::chrono::steady_clock::time_point deadline) {
    const timespec until = to_timespec(deadline);
    return pthread_cond_timedwait(&condition_, mutex.native(), &until);
}

Waited MonitorSignal::wait_for_token(std::chrono::steady_clock::time_point deadline) {
    int result = 0;
    while (tokens_ == 0 && !stopped_ && result == 0) {
        result = condition_.wait_until(inner_, deadline);
    }
    if (stopped_) {
        return Waited::stopped;
    }
    if (tokens_ > 0) {
        --tokens_;
        return Waited::signalled;
    }
    return result == ETIMEDOUT ? Waited::timedOut : Waited::failed;
}

// The outer mutex is let go and taken again around the wait, which the analysis cannot follow.
Waited MonitorSignal::wait_until(Mutex& held, std::chrono::steady_clock::time_point deadline) DRO_NO_ANALYSIS {
    Waited outcome = Waited::failed;
    {
        const MutexLock lock(inner_);
        ++waiters_;
        held.unlock();
        outcome = wait_for_token(deadline);
        --waiters_;
    }
    pthread_mutex_lock(held.native());
    return outcome;
}

int MonitorSignal::signal() {
    const MutexLock lock(inner_);
    if (waiters_ <= tokens_) {
        return 0;
    }
    const int result = condition_.notify_one();
    if (result == 0) {
        ++tokens_;
    }
    return result;
}

void MonitorSignal::stop() {
    const MutexLock lock(inner_);
    stopped_ = true;
    condition_.notify_all();
}

void MonitorSignal::reset() {
    const MutexLock lock(inner_);
    stopped_ = false;
}

int MonitorSignal::waiters() {
    const MutexLock lock(inner_);
    return waiters_;
}

}  // namespace dro

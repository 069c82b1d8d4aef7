#include "dro_sync.h"

#include <cerrno>
#include <cstring>
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

void MonitorSignal::join(Waiter& waiter) {
    Waiter** link = &oldest_;
    while (*link != nullptr) {
        link = &(*link)->next;
    }
    *link = &waiter;
}

void MonitorSignal::leave(const Waiter& waiter) {
    Waiter** link = &oldest_;
    while (*link != &waiter) {
        link = &(*link)->next;
    }
    *link = waiter.next;
}

Waited MonitorSignal::wait_signalled(const Waiter& waiter, std::chrono::steady_clock::time_point deadline) {
    int result = 0;
    while (!waiter.woken && !stopped_ && result == 0) {
        result = condition_.wait_until(inner_, deadline);
    }
    if (stopped_) {
        return Waited::stopped;
    }
    if (waiter.woken) {
        return *waiter.woken;
    }
    return result == ETIMEDOUT ? Waited::timedOut : Waited::failed;
}

// Releases and reacquires the outer mutex around the wait, which the analysis cannot follow.
Waited MonitorSignal::wait_until(Mutex& held, std::chrono::steady_clock::time_point deadline,
                                 const char* uuid) DRO_NO_ANALYSIS {
    Waited outcome = Waited::failed;
    {
        const MutexLock lock(inner_);
        Waiter waiter{.uuid = uuid};
        join(waiter);
        held.unlock();
        outcome = wait_signalled(waiter, deadline);
        leave(waiter);
    }
    pthread_mutex_lock(held.native());
    return outcome;
}

int MonitorSignal::wake(Waiter& waiter, Waited with) {
    const int result = condition_.notify_all();
    if (result == 0) {
        waiter.woken = with;
    }
    return result;
}

int MonitorSignal::signal() {
    const MutexLock lock(inner_);
    for (Waiter* waiter = oldest_; waiter != nullptr; waiter = waiter->next) {
        if (!waiter->woken) {
            return wake(*waiter, Waited::signalled);
        }
    }
    return 0;
}

int MonitorSignal::signal_order(const char* uuid) {
    const MutexLock lock(inner_);
    int result = 0;
    for (Waiter* waiter = oldest_; waiter != nullptr && result == 0; waiter = waiter->next) {
        if (!waiter->woken && std::strcmp(waiter->uuid, uuid) == 0) {
            result = wake(*waiter, Waited::answered);
        }
    }
    return result;
}

void MonitorSignal::stop() {
    const MutexLock lock(inner_);
    stopped_ = true;
    condition_.notify_all();
}

}  // namespace dro

#include "dro_monitor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "dro_log.h"
#include "dro_threads.h"

namespace dro {

Mutex mutex_act_lock;
Mutex mutex_prov_lock;
Mutex mutex_toggle_lock;
MonitorSignal timeoutResponse;
MonitorSignal activationResponse;
MonitorSignal provisionResponse;
MonitorSignal circleToggleResponse;

namespace {

constexpr std::array<MonitorSignal*, 4> kSignals{&timeoutResponse, &activationResponse, &provisionResponse,
                                                 &circleToggleResponse};

// Who watches what. A transaction is free again once it was reported; its monitor lives on until the fields are reset.
class Register {
 public:
    bool enter(const Monitor& monitor, const Order& order) {
        const MutexLock lock(mutex_);
        Entry entry{&monitor, order.uuid.c_str()};
        if (std::find(watched_.begin(), watched_.end(), entry) != watched_.end()) {
            return false;
        }
        watched_.push_back(std::move(entry));
        ++alive_;
        return true;
    }

    void reported(const Monitor& monitor, const Order& order) {
        const MutexLock lock(mutex_);
        std::erase(watched_, Entry{&monitor, order.uuid.c_str()});
    }

    void leave() {
        const MutexLock lock(mutex_);
        --alive_;
        changed_.notify_all();
    }

    void wait_until_none(std::chrono::milliseconds grace) {
        const auto deadline = std::chrono::steady_clock::now() + grace;
        const MutexLock lock(mutex_);
        while (alive_ > 0 && changed_.wait_until(mutex_, deadline) != ETIMEDOUT) {
        }
    }

    int alive() {
        const MutexLock lock(mutex_);
        return alive_;
    }

 private:
    using Entry = std::pair<const Monitor*, std::string>;
    Mutex mutex_;
    Condition changed_;
    std::vector<Entry> watched_ DRO_GUARDED_BY(mutex_);
    int alive_ DRO_GUARDED_BY(mutex_) = 0;
};

Register& monitors() {
    static Immortal<Register> all;
    return *all;
}

// Waits and reports until the wait has ended for good. False when shutdown ended it.
bool watch(const Monitor& monitor, const Order& order) DRO_REQUIRES(monitor.mutex) {
    const auto deadline = std::chrono::steady_clock::now() + durations().*monitor.limit;
    Waited outcome = Waited::failed;
    while (outcome == Waited::failed) {
        outcome = monitor.answer.wait_until(monitor.mutex, deadline);
        if (outcome != Waited::stopped) {
            monitor.report(outcome, order);
        }
    }
    return outcome != Waited::stopped;
}

// Takes the monitor off the register however its thread ends.
class Registered {
 public:
    Registered(const Monitor& monitor, const Order& order) : monitor_(monitor), order_(order) {}
    ~Registered() {
        monitors().reported(monitor_, order_);
        monitors().leave();
    }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;

    void reported() { monitors().reported(monitor_, order_); }

 private:
    const Monitor& monitor_;
    const Order& order_;
};

}  // namespace

void on_flag_change(const Monitor& monitor) {
    LOG_TRACE("%s", monitor.called);
    if (!read_bool(monitor.flag)) {
        LOG_TRACE("%s", monitor.flagReset);
        return;
    }
    const Order order = monitor.order();
    std::function<void()> body = [&monitor, order] { monitor.thread(order); };
    if (!monitors().enter(monitor, order)) {
        return;
    }
    errno = start_detached(std::move(body));
    if (errno == 0) {
        LOG_TRACE("%s", monitor.threadStarted);
        return;
    }
    std::perror(monitor.threadFailed);
    if (monitor.failureEndsProcess) {
        end_process(1);
    }
    const Registered over(monitor, order);
}

void run_monitor(const Monitor& monitor, const Order& order) {
    Registered registered(monitor, order);
    LOG_TRACE("%s", monitor.started);
    LOG_TRACE(monitor.uuidFormat, order.uuid.c_str());
    int result = 0;
    if (!monitor.mutex.lock(result)) {
        if (monitor.lockFailed != nullptr) {
            LOG_AT(monitor.lockFailedLevel, "%s", monitor.lockFailed);
        }
        errno = result;
        std::perror("pthread_mutex_lock");
        return;
    }
    const AdoptedLock held(monitor.mutex);
    const bool reported = watch(monitor, order);
    registered.reported();
    monitor.reset(reported);
}

void stop_monitors() {
    for (MonitorSignal* signal : kSignals) {
        signal->stop();
    }
}

void allow_monitors() {
    for (MonitorSignal* signal : kSignals) {
        signal->reset();
    }
}

void wait_for_monitors(std::chrono::milliseconds grace) {
    monitors().wait_until_none(grace);
}

int active_monitors() {
    return monitors().alive();
}

}  // namespace dro

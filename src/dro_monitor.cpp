#include "dro_monitor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "dro_log.h"
#include "dro_stop.h"
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

std::atomic<int> g_active{0};

}  // namespace

int Orders::give(Order order) {
    if (!dal_has_handler(kind_.flag.table, kind_.flag.name)) {
        return write_bool(kind_.flag, true);
    }
    {
        const MutexLock lock(mutex_);
        order.number = ++given_;
        waiting_.push_back(order);
    }
    // A store that reports changes only is silent about a flag that was true already, and about one that cannot be read
    // nothing is known. The monitor is then started here; a callback that comes as well finds no waiting order.
    const bool mayBeSilent = read_bool(kind_.flag, true);
    const int status = write_bool(kind_.flag, true);
    if (status != HAB_OK) {
        const MutexLock lock(mutex_);
        std::erase_if(waiting_, [&](const Order& waiting) { return waiting.number == order.number; });
    } else if (mayBeSilent) {
        start_waiting();
    }
    return status;
}

void Orders::on_flag_change() {
    LOG_TRACE("%s", kind_.callbackText);
    // The monitor of an earlier order may have reset the flag since this order was given.
    const bool flag = read_bool(kind_.flag);
    bool waits = false;
    {
        const MutexLock lock(mutex_);
        waits = !waiting_.empty();
    }
    if (waits) {
        start_waiting();
    } else if (!flag) {
        LOG_TRACE("%s", kind_.flagResetText);
    } else {
        start_stored();
    }
}

int Orders::alive() {
    const MutexLock lock(mutex_);
    return alive_;
}

Orders::Place Orders::take_place() {
    ++alive_;
    ++g_active;
    return {this, [](Orders* orders) { orders->leave(); }};
}

void Orders::leave() {
    const MutexLock lock(mutex_);
    --alive_;
    --g_active;
}

void Orders::start_waiting() {
    Order order;
    Place place;
    {
        const MutexLock lock(mutex_);
        if (waiting_.empty()) {
            return;
        }
        place = take_place();
        order = waiting_.front();
        waiting_.pop_front();
    }
    start(order, std::move(place));
}

// Another program wrote the flag. While a monitor is alive it is the flag of that monitor's order, seen again.
void Orders::start_stored() {
    Place place;
    {
        const MutexLock lock(mutex_);
        if (alive_ > 0) {
            return;
        }
        place = take_place();
    }
    start(kind_.storedOrder(), std::move(place));
}

void Orders::start(const Order& order, Place place) const {
    std::function<void()> body = [this, order, place = std::move(place)] { kind_.monitor(order); };
    errno = start_detached(std::move(body));
    if (errno == 0) {
        LOG_TRACE("%s", kind_.threadStartedText);
        return;
    }
    std::perror(kind_.threadFailedText);
    if (kind_.threadRequired) {
        end_process(1);
    }
}

bool lock_monitor(Mutex& mutex, const char* failedText) {
    int result = 0;
    if (mutex.lock(result)) {
        return true;
    }
    if (failedText != nullptr) {
        LOG_ERROR("%s", failedText);
    }
    errno = result;
    std::perror("pthread_mutex_lock");
    return false;
}

bool wait_and_report(Mutex& mutex, MonitorSignal& signal, const Order& order, std::chrono::milliseconds limit,
                     const std::function<void(Waited outcome)>& report) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    Waited outcome = Waited::failed;
    while (outcome == Waited::failed) {
        outcome = signal.wait_until(mutex, deadline, order.uuid.c_str());
        if (outcome == Waited::stopped) {
            return false;
        }
        report(outcome);
    }
    return !stop_requested();
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

int active_monitors() {
    return g_active;
}

}  // namespace dro

#include "dro_monitor.h"

#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "dro_log.h"
#include "dro_output.h"
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

}  // namespace

int Orders::give(const Order& order) {
    if (!dal_is_watched(kind_.flag.table, kind_.flag.name)) {
        return write_bool(kind_.flag, true);
    }
    const MutexLock lock(mutex_);
    if (!order.place) {
        log_no_place(kind_.flag.name);
        const int status = write_bool(kind_.flag, true);
        write_bool(kind_.flag, false);
        return status;
    }
    waiting_.push_back(order);
    // A store that reports only changes does not report a flag that was already true, and the flag is unknown when it
    // cannot be read. In both cases the monitor is started here. If a callback arrives too, it finds no waiting order.
    const bool mayBeSilent = read_bool(kind_.flag, true);
    const int status = write_bool(kind_.flag, true);
    if (status != HAB_OK) {
        waiting_.pop_back();
    } else if (mayBeSilent) {
        start_oldest();
    }
    return status;
}

void Orders::on_flag_change() {
    LOG_TRACE("%s", kind_.callbackText);
    const MutexLock lock(mutex_);
    const bool flag = read_bool(kind_.flag);
    if (!waiting_.empty()) {  // the monitor of an earlier order may have reset the flag since
        start_oldest();
    } else if (!flag) {
        LOG_TRACE("%s", kind_.flagResetText);
    } else if (alive_ == 0) {  // otherwise the flag belongs to a running monitor's order
        start_stored();
    }
}

void Orders::start_oldest() {
    Order order = std::move(waiting_.front());
    waiting_.pop_front();
    start(std::move(order));
}

// Another program has set the flag.
void Orders::start_stored() {
    Order order = kind_.storedOrder();
    order.place = take_place();
    if (order.place) {
        start(std::move(order));
    } else {
        log_no_place(kind_.flag.name);
        write_bool(kind_.flag, false);
    }
}

void Orders::start(Order order) {
    ++alive_;
    try {
        const std::shared_ptr<Orders> counted(this, [](Orders* orders) { --orders->alive_; });
        errno = start_detached([this, counted, order = std::move(order)] {
            if (!stop_requested()) {
                kind_.monitor(order);
            }
        });
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    if (errno == 0) {
        LOG_TRACE("%s", kind_.threadStartedText);
        return;
    }
    print_error(kind_.threadFailedText);
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
    print_error("pthread_mutex_lock");
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

}  // namespace dro

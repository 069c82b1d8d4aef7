// dro_monitor.h - orders, and the monitors that report what came of them.
//
// A handler that accepts an order passes it on in memory and writes the order's flag true. The flag's callback takes
// the oldest waiting order and starts its monitor, a thread that waits under its mutex until the answering service's
// callback signals it or a deadline passes, reports the outcome and resets the fields. Each accepted order has one
// monitor, whatever transaction ids repeat.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>

#include "dro_dal.h"
#include "dro_store.h"
#include "dro_sync.h"

namespace dro {

// What a monitor knows of its order.
struct Order {
    FixedText<128> uuid;        // the transaction that the outcome is reported for
    FixedText<16> timestamp{};  // when the order arrived; device lists only
};

// One kind of order: its flag, the texts of the flag's callback, and its monitor.
struct OrderKind {
    Field flag;
    const char* callbackText;
    const char* threadStartedText;
    const char* threadFailedText;  // for perror
    bool threadRequired;           // a thread that cannot be started ends the process with status 1
    const char* flagResetText;
    void (*monitor)(const Order& order);  // the thread's body
    Order (*storedOrder)();               // for a flag that another program wrote: the order as the store describes it
};

// The orders of one kind between their handler and their monitor. Any thread. Lives as long as the process.
class Orders {
 public:
    explicit Orders(const OrderKind& kind) : kind_(kind) {}
    Orders(const Orders&) = delete;
    Orders& operator=(const Orders&) = delete;
    ~Orders() = default;

    // Passes an accepted order to its monitor and writes the flag true. Returns the status of that write; after a
    // failed one the order is withdrawn. Without a callback on the flag the order is not kept.
    int give(const Order& order);

    // The flag's change callback. Store delivery thread.
    void on_flag_change();

    // Monitors that have not returned yet.
    int alive() const { return alive_; }

 private:
    void start_oldest() DRO_REQUIRES(mutex_);
    void start(const Order& order);

    const OrderKind& kind_;
    Mutex mutex_;  // held while the flag is written: the callback takes no order that may still be withdrawn
    std::deque<Order> waiting_ DRO_GUARDED_BY(mutex_);
    std::atomic<int> alive_{0};
};

// What the monitors share. The list watch and the activation monitor pair with the same mutex; a wait releases it, so
// that both may wait at the same time.
extern Mutex mutex_act_lock;
extern Mutex mutex_prov_lock;
extern Mutex mutex_toggle_lock;
extern MonitorSignal timeoutResponse;       // list watch
extern MonitorSignal activationResponse;    // activation monitor
extern MonitorSignal provisionResponse;     // provision monitor
extern MonitorSignal circleToggleResponse;  // toggle monitor

// Locks a monitor's mutex. On failure logs `failedText` (if any) as an error, prints the reason on standard error and
// returns false.
bool lock_monitor(Mutex& mutex, const char* failedText) DRO_TRY_ACQUIRE(true, mutex);

// Waits for `signal` for up to `limit` with `mutex` released, and reports the outcome with `mutex` held. A wait that
// failed is reported and continued until the same deadline. Returns false when the process's stop ended the wait
// (nothing is reported then) or came during the report: the monitor then writes nothing more.
bool wait_and_report(Mutex& mutex, MonitorSignal& signal, const Order& order, std::chrono::milliseconds limit,
                     const std::function<void(Waited outcome)>& report) DRO_REQUIRES(mutex);

// Ends every monitor's wait. Shutdown only.
void stop_monitors();

}  // namespace dro

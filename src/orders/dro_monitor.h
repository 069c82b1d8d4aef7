// dro_monitor.h - orders, and the monitors that report their outcome.
//
// A handler that accepts an order passes it on in memory and sets the order's flag. The flag's callback takes the
// oldest waiting order and starts its monitor, a thread. The monitor waits until the answering service's callback
// signals it or a deadline passes, reports the outcome and resets the fields. Each accepted order has one monitor, even
// when transaction ids repeat.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>

#include "dro_dal.h"
#include "dro_places.h"
#include "dro_store.h"
#include "dro_sync.h"

namespace dro {

// The monitor's copy of its order.
struct Order {
    FixedText<128> uuid;        // the transaction for the report
    FixedText<16> timestamp{};  // when the order arrived; device lists only
    Place place{};              // for its monitor
};

// One kind of order: its flag, the texts of the flag's callback, and its monitor.
struct OrderKind {
    Field flag;
    const char* callbackText;
    const char* threadStartedText;
    const char* threadFailedText;  // for perror
    bool threadRequired;           // the process exits with status 1 when the thread cannot be started
    const char* flagResetText;
    void (*monitor)(const Order& order);  // thread body
    Order (*storedOrder)();               // reads the order from the store when another program set the flag
};

// Accepted orders of one kind that wait for their monitors to start. Any thread. Must live as long as the process.
class Orders {
 public:
    explicit Orders(const OrderKind& kind) : kind_(kind) {}
    Orders(const Orders&) = delete;
    Orders& operator=(const Orders&) = delete;
    ~Orders() = default;

    // Passes an accepted order to its monitor and sets the flag. Returns the status of that write; a failed write
    // withdraws the order. Without a callback on the flag the order is not kept. An order without a place starts no
    // monitor: this is logged, and the flag is reset at once.
    int give(const Order& order);

    // The flag's change callback. Store delivery thread.
    void on_flag_change();

    // Number of monitors that have not returned yet.
    int alive() const { return alive_; }

 private:
    void start_oldest() DRO_REQUIRES(mutex_);
    void start_stored() DRO_REQUIRES(mutex_);
    void start(Order order);

    const OrderKind& kind_;
    Mutex mutex_;  // held while the flag is written, so the callback cannot take an order that a failed write withdraws
    std::deque<Order> waiting_ DRO_GUARDED_BY(mutex_);
    std::atomic<int> alive_{0};
};

// Shared by the monitors. The list watch and the activation monitor use the same mutex; a wait releases it, so both can
// wait at the same time.
extern Mutex mutex_act_lock;
extern Mutex mutex_prov_lock;
extern Mutex mutex_toggle_lock;
extern MonitorSignal timeoutResponse;       // list watch
extern MonitorSignal activationResponse;    // activation monitor
extern MonitorSignal provisionResponse;     // provision monitor
extern MonitorSignal circleToggleResponse;  // toggle monitor

// Locks a monitor's mutex. On failure, logs `failedText` (if not null) as an error, prints the reason on standard error
// and returns false.
bool lock_monitor(Mutex& mutex, const char* failedText) DRO_TRY_ACQUIRE(true, mutex);

// Waits for `signal` for up to `limit` with `mutex` released, and reports the outcome with `mutex` held. A failed wait
// is reported and continued until the same deadline. Returns false when a stop request interrupted the wait (nothing is
// reported) or the report. The monitor then writes nothing more.
bool wait_and_report(Mutex& mutex, MonitorSignal& signal, const Order& order, std::chrono::milliseconds limit,
                     const std::function<void(Waited outcome)>& report) DRO_REQUIRES(mutex);

// Stops every monitor's wait. Shutdown only.
void stop_monitors();

}  // namespace dro

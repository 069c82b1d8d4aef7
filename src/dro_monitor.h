// dro_monitor.h - the hand-over between an order and its outcome, written once for all monitors.
//
// A command sets a flag field. The flag's change callback starts a monitor thread, which waits under its mutex until
// the answering service's callback signals it or a deadline passes, reports, resets the fields and ends. One
// transaction has one monitor: a flag written false, then true is two notices that may both read true.
#pragma once

#include <chrono>

#include "dro_durations.h"
#include "dro_store.h"
#include "dro_sync.h"

namespace dro {

// The order that a monitor watches.
struct Order {
    FixedText<128> uuid;      // its transaction
    FixedText<16> timestamp;  // when it was given, where that is reported
};

// What the monitors share. The list watch and the activation monitor pair with the same mutex.
extern Mutex mutex_act_lock;
extern Mutex mutex_prov_lock;
extern Mutex mutex_toggle_lock;
extern MonitorSignal timeoutResponse;       // list watch
extern MonitorSignal activationResponse;    // activation monitor
extern MonitorSignal provisionResponse;     // provision monitor
extern MonitorSignal circleToggleResponse;  // toggle monitor

// What one kind of monitor is made of. Its objects live as long as the process.
struct Monitor {
    // The flag's callback.
    Field flag;
    const char* called;
    const char* threadFailed;  // for perror
    bool failureEndsProcess;
    const char* threadStarted;
    const char* flagReset;

    // The monitor itself, on a thread of its own: calls run_monitor for this kind.
    void (*thread)(const Order& order);
    const char* started;
    const char* uuidFormat;
    Order (*order)();  // read when the flag is seen
    Mutex& mutex;
    const char* lockFailed;  // null: only perror
    int lockFailedLevel;
    MonitorSignal& answer;
    std::chrono::milliseconds Durations::*limit;
    // Reports what the wait came to: signalled, timed out, or failed (after which the wait goes on). Runs under the
    // mutex.
    void (*report)(Waited outcome, const Order& order);
    // Puts back the fields that the report leaves, or, when shutdown came before it, all of the order's. Runs under the
    // mutex.
    void (*reset)(bool reported);
};

// The flag's change callback: starts the monitor when the flag is true. Store delivery thread.
void on_flag_change(const Monitor& monitor);

// The body of a monitor's thread.
void run_monitor(const Monitor& monitor, const Order& order);

// Ends every monitor's wait: the fields are reset without a report. Shutdown only.
void stop_monitors();
// Waits until no monitor runs, up to `grace`.
void wait_for_monitors(std::chrono::milliseconds grace);
// Lets monitors wait again; for tests that start again.
void allow_monitors();

// Monitor threads alive.
int active_monitors();

}  // namespace dro

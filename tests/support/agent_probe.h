// agent_probe.h - internal agent state that only tests read or reset. Any thread.
#pragma once

#include <sys/eventfd.h>

#include <limits>

#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_monitor.h"
#include "dro_places.h"
#include "dro_stop.h"

namespace dro {

class MonitorSignalProbe {
 public:
    static int waiters(MonitorSignal& signal) {
        const MutexLock lock(signal.inner_);
        int count = 0;
        for (const auto* waiter = signal.oldest_; waiter != nullptr; waiter = waiter->next) {
            ++count;
        }
        return count;
    }
    static void allow(MonitorSignal& signal) {
        const MutexLock lock(signal.inner_);
        signal.stopped_ = false;
    }
};

}  // namespace dro

namespace dro_test {

// The number of monitors waiting for `signal`.
inline int waiters(dro::MonitorSignal& signal) {
    return dro::MonitorSignalProbe::waiters(signal);
}

// The number of monitors of all kinds that have not returned yet.
inline int active_monitors() {
    return dro::list_orders().alive() + dro::activation_orders().alive() + dro::provision_orders().alive() +
           dro::toggle_orders().alive();
}

// The number of places for monitors and producers while it exists.
struct Places {
    explicit Places(unsigned count) { dro::set_places(count); }
    ~Places() { dro::set_places(std::numeric_limits<unsigned>::max()); }
    Places(const Places&) = delete;
    Places& operator=(const Places&) = delete;
};

// Cancels a stop request.
inline void clear_stop() {
    eventfd_t count = 0;
    eventfd_read(dro::stop_descriptors().back().fd, &count);
}

// Lets monitors wait again after stop_monitors.
inline void allow_monitors() {
    for (dro::MonitorSignal* signal :
         {&dro::timeoutResponse, &dro::activationResponse, &dro::provisionResponse, &dro::circleToggleResponse}) {
        dro::MonitorSignalProbe::allow(*signal);
    }
}

}  // namespace dro_test

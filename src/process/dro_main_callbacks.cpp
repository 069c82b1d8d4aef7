// The callbacks that the agent passes to the connector link.
#include <exception>

#include "dro_fields.h"
#include "dro_log.h"
#include "dro_main.h"
#include "dro_parse_cnf.h"
#include "dro_reg.h"
#include "dro_stop.h"

namespace dro {

Mutex mutex_all;

namespace {

// Result of the last lock or unlock of mutex_all. Only the log lines below use it.
thread_local int retMutex = 0;

// Runs `work` under mutex_all. The work is dropped when the lock fails or a stop is requested during the wait.
template <typename Work>
void run_serialised(Work work) {
    if (!mutex_all.lock(retMutex)) {
        LOG_ERROR("Agent : Mutex Lock fail. ERROR = %d", retMutex);
        return;
    }
    LOG_TRACE("=====LOCKed Process..=====\n");
    try {
        if (stop_requested()) {
            LOG_NOTICE("Stopping: the command or registration is not started\n");
        } else {
            work();
        }
    } catch (const std::exception& failure) {
        LOG_ERROR("A command or registration failed: %s\n", failure.what());
    }
    retMutex = mutex_all.unlock();
    if (retMutex != 0) {
        LOG_TRACE("Agent : Mutex fail while unlocking. ERROR = %d", retMutex);
    } else {
        LOG_TRACE("=====UnLOCK Done..=====\n");
    }
}

void ask_for_connection() {
    LOG_TRACE("Not a valid event received not honor this!...\n");
    const auto forced = read_int(fields::jorv_force_connection);
    LOG_TRACE("jorvagent force connection is %d\n", forced);
    if (forced == 0) {
        write_int(fields::jorv_force_connection, 1);
        LOG_TRACE("jorvagent force connection is set \n");
    }
}

}  // namespace

void JorvAgentStatus_cbHandler(int registered, int claimed, int connected) {
    LOG_TRACE(
        "Callback successfull, jorv_agent_registered is: %d, jorv_agent_claimed is %d,  jorv_agent_connected is: %d\n",
        registered, claimed, connected);
    if (registered == 1 || connected == 1) {
        run_serialised(registerDroCloud);
    } else if (!stop_requested()) {
        ask_for_connection();
    }
    LOG_TRACE("Returning from JorvAgentStatus_cbHandler\n");
}

void JorvAgentNotification_cbHandler(const char* message) {
    LOG_TRACE("Inside JorvAgentNotification_cbHandler\n");
    LOG_TRACE("JorvAgentNotification_cbHandler successfull called Msg from Cloud is %s\n",
              message != nullptr ? message : "(null)");
    if (message == nullptr) {
        LOG_TRACE("No Message Received\n");
    } else {
        run_serialised([message] { parseConfigBuff(message); });
    }
    LOG_TRACE("Returning from JorvAgentNotification_cbHandler\n");
}

void cb_test(const char* /*message*/) {
    LOG_TRACE("Inside cb_test\n");
}

}  // namespace dro

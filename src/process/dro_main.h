// dro_main.h - start-up and shutdown of the agent, and the callbacks for the connector.
#pragma once

#include "dro_sync.h"

namespace dro {

// The whole program. Returns 0 after an orderly shutdown and -1 for a wrong command line. A fatal start-up failure
// exits the process with status 1. Other threads are still running on return, so the caller must end the process
// without destructors.
int droagent_main(int argc, char** argv);

// Shuts down. `reason` determines what is released. Runs on the main thread, parked or during start-up.
void good_bye(const char* reason);

void sig_usr1_handler(int sig);
void sig_usr2_handler(int sig);

// Watches the request to reload the log configuration. Unrelated to the identity record tv(). Returns 0.
int tv_subscribe();

// Registers the router at once when its connector is already registered. Returns the status of reading that state.
int regStatus();

// ---- The connector's callbacks ----

// Serialises registration and commands. Not recursive.
extern Mutex mutex_all;

// Called when the connector's state changes. Any thread.
void JorvAgentStatus_cbHandler(int registered, int claimed, int connected);
// Receives a message from the cloud, NUL-terminated, or null. Any thread; returns when the command is complete.
void JorvAgentNotification_cbHandler(const char* message);
// Accepts an event message and ignores it.
void cb_test(const char* message);

}  // namespace dro

// dro_main.h - the agent's life from start to end, and the callbacks through which the connector reaches it.
#pragma once

#include "dro_sync.h"

namespace dro {

// The whole program. Returns 0 after an orderly shutdown and -1 for a wrong command line; a fatal start-up failure ends
// the process with status 1. Other threads are still running when it returns: the caller ends the process without
// destroying.
int droagent_main(int argc, char** argv);

// Shutdown, as far as `reason` says what there is to release. Runs on the main thread, parked or in start-up.
void good_bye(const char* reason);

void sig_usr1_handler(int sig);
void sig_usr2_handler(int sig);

// Watches the request to read the log configuration again; nothing to do with the identity record tv(). Returns 0.
int tv_subscribe();

// Registers the router at once when its connector is registered already. Returns the status of that read.
int regStatus();

// ---- The connector's callbacks ----

// Serialises registration and commands; not recursive.
extern Mutex mutex_all;

// The connector's state changed. Any thread.
void JorvAgentStatus_cbHandler(int registered, int claimed, int connected);
// A message from the cloud, NUL-terminated, or null. Any thread; returns when the command is through.
void JorvAgentNotification_cbHandler(const char* message);
// An event message: accepted and ignored.
void cb_test(const char* message);

}  // namespace dro

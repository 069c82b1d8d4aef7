// dro_dispatcher.h - the one thread that takes events off the queue and pushes each to the cloud.
#pragma once

namespace dro {

// Starts the dispatcher when the store says that the router supports it. Returns 0; ends the process with status 1 when
// the thread cannot be started. Called once at start-up, after InitQueue.
int init_dispatcher();

// Asks the dispatcher to end, in the middle of a push too, and waits for it. Events left in the queue stay there.
// Called at shutdown, also when no dispatcher or no store session was ever there.
void cancel_dispatcher_thread();

}  // namespace dro

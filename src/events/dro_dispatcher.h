// dro_dispatcher.h - the thread that takes events off the queue and pushes each to the cloud.
#pragma once

namespace dro {

// Called on the dispatcher's thread after the push of a tagged device or of a list. Not called when a list answered a
// transaction and got no response, when the event was dropped because the router is not claimed, or when a stop request
// interrupted the push. `transaction` is the transaction that the list answered, or empty.
using AfterPush = void (*)(const char* transaction);

// Sets the action that follows the push of an event of type `tag`, "DTN" or "CDIL"; the other types have none. Start-up
// only, before init_dispatcher.
void after_push(const char* tag, AfterPush action);

// Starts the dispatcher when the store marks it as supported. Returns 0; exits the process with status 1 when the
// thread cannot be started. Called once at start-up, after InitQueue.
int init_dispatcher();

// Stops the dispatcher, also in the middle of a push, and waits for its thread. Events in the queue remain there.
// Called at shutdown, also when there was never a dispatcher or a store session.
void cancel_dispatcher_thread();

}  // namespace dro

// dro_dispatcher.h - the one thread that takes events off the queue and pushes each to the cloud.
#pragma once

namespace dro {

// What follows a push, on the dispatcher's thread: of a tagged device always, of a list unless its transaction's answer
// got no response. `transaction` is the one that a list answered, else the empty text. Not called when the event was
// dropped because the router is not claimed, nor when a stop cut the push short.
using AfterPush = void (*)(const char* transaction);

// Sets what follows the push of an event of type `tag`, "DTN" or "CDIL"; nothing follows the others. Start-up only,
// before init_dispatcher.
void after_push(const char* tag, AfterPush action);

// Starts the dispatcher when the store says that the router supports it. Returns 0; ends the process with status 1 when
// the thread cannot be started. Called once at start-up, after InitQueue.
int init_dispatcher();

// Asks the dispatcher to end, in the middle of a push too, and waits for it. Events left in the queue stay there.
// Called at shutdown, also when no dispatcher or no store session was ever there.
void cancel_dispatcher_thread();

}  // namespace dro

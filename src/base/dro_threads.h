// dro_threads.h - starts the agent's threads. Any thread may call.
#pragma once

#include <pthread.h>

#include <functional>

namespace dro {

// Starts a thread with the agent's stack size, joinable unless `detached`. Returns 0 or the error number.
int start_thread(pthread_t& thread, void* (*body)(void*), void* argument, bool detached);

// Starts `body` on a detached thread. Returns 0, or the error number when the thread cannot be created (then `body`
// does not run). An exception from `body` is logged, and only that thread exits.
int start_detached(std::function<void()> body);

// Flushes the output and exits immediately with `status`. No destructor runs, because other threads still use the
// objects.
[[noreturn]] void end_process(int status);

}  // namespace dro

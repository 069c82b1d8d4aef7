// jorv_receiver.h - receives one message from an accepted connection, on its own thread.
#pragma once

#include <pthread.h>

#include "libJorvhdlr.h"

namespace jorv {

// Starts a thread, joinable unless `detached`. Returns 0 or an error number.
int start_thread(pthread_t& thread, void* (*body)(void*), void* argument, bool detached);

// Limits each read of the socket to `longest`.
void limit_reads(int descriptor, std::chrono::milliseconds longest);

// Accepts one connection on `listening` and starts its receiver. Returns 0 (also when accept itself failed), -2 when
// out of memory, -3 when the thread could not be started. On failure the connection is closed. `acceptError`, if not
// null, receives accept's error number, 0 when it succeeded.
int jorvHandleSock(int listening, MessageCallback callback, int* acceptError = nullptr);

}  // namespace jorv

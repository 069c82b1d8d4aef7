// jorv_receiver.h - taking one message from one accepted connection, on a thread of its own.
#pragma once

#include <pthread.h>

#include "libJorvhdlr.h"

namespace jorv {

// Starts a thread, joinable unless `detached`. Returns 0 or an error number.
int start_thread(pthread_t& thread, void* (*body)(void*), void* argument, bool detached);

// Accepts one connection on `listening` and starts its receiver. Returns 0 (also when the accept itself failed), -2
// when memory ran out, -3 when no thread could be started; the connection is closed then.
int jorvHandleSock(int listening, MessageCallback callback);

}  // namespace jorv

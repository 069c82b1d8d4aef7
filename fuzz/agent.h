// agent.h - the agent's code inside a fuzz program: on a real store, with a cloud that answers from the input, and with
// threads that run only when the program calls them. Nothing waits: every duration is zero. Use it from one thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store.h"

namespace fuzz {

// A store of a router with an identity and every log level enabled, and an agent started up to its endpoints. Each call
// resets the store to that state and discards answers, threads and events.
Store& fresh_agent();

// Queues the cloud's answer to a later request, in order. An empty text, or no queued answer, means no answer.
void answer_next(std::string answer);

// The functions of the threads started since the last call, in order.
std::vector<std::function<void()>> started_threads();

}  // namespace fuzz

// agent.h - the agent's code inside a fuzz program: on a real store, with a cloud that answers from the input, and with
// threads that run when the program says. Nothing here waits: every duration is zero. One thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store.h"

namespace fuzz {

// The store of a router with an identity and every log level on, the agent started as far as its endpoints. Each call
// puts the store back to that, and forgets answers, threads and events.
Store& fresh_agent();

// The cloud's answer to the request after those that have one already; an empty text is none. Without one there is no
// answer.
void answer_next(std::string answer);

// The bodies of the threads that were started since the last call, in their order.
std::vector<std::function<void()>> started_threads();

}  // namespace fuzz

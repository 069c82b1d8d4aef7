// dro_threads.h - starting the agent's short-lived threads. Any thread may call.
#pragma once

#include <functional>

namespace dro {

// Starts `body` on a detached thread of its own. Returns 0, or the error number when no thread could be made (then
// `body` does not run). An exception that leaves `body` ends that thread with a log line, nothing else.
int start_detached(std::function<void()> body);

// Ends the process at once with `status`: output is flushed, but no destructor runs, since other threads are still
// using what it would destroy.
[[noreturn]] void end_process(int status);

}  // namespace dro

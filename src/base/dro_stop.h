// dro_stop.h - the process's one request to stop, and pauses that end with it. Any thread.
#pragma once

#include <poll.h>

#include <array>
#include <chrono>

namespace dro {

// Descriptors that turn readable when the agent is to stop: SIGUSR1 pending while it is blocked (start-up), and a
// request by request_stop. For transfers that wait on descriptors of their own: who finds one readable calls
// request_stop. Negative entries are ignored by poll.
std::array<pollfd, 2> stop_descriptors();

// Blocks SIGUSR1, SIGUSR2 and SIGALRM in the calling thread and in all it starts, and watches for a pending SIGUSR1.
// Called once by the main thread before any other thread exists. Returns 0 or an error number.
int block_signals_and_watch();

// Asks every pause and transfer to end. Takes no lock.
void request_stop();

// True once a stop was asked for, by request_stop or by a pending SIGUSR1.
bool stop_requested();

// Sleeps on the monotonic clock. Returns false when a stop cut the pause short.
bool pause_for(std::chrono::microseconds duration);

}  // namespace dro

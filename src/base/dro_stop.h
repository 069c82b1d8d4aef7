// dro_stop.h - the process-wide stop request, and pauses that it interrupts. Any thread.
#pragma once

#include <poll.h>

#include <array>
#include <chrono>

namespace dro {

// Returns descriptors that become readable on a stop: one when a blocked SIGUSR1 is pending (start-up), one after
// request_stop. A transfer polls them together with its own and calls request_stop when one is readable. poll ignores
// negative descriptors.
std::array<pollfd, 2> stop_descriptors();

// Blocks SIGUSR1, SIGUSR2 and SIGALRM in the calling thread and in all threads it starts, and watches for a pending
// SIGUSR1. The main thread calls it once, before any other thread exists. Returns 0 or an error number.
int block_signals_and_watch();

// Interrupts every pause and transfer. Takes no lock.
void request_stop();

// True after request_stop, or when SIGUSR1 is pending.
bool stop_requested();

// Sleeps on the monotonic clock. Returns false when a stop request interrupted the pause.
bool pause_for(std::chrono::microseconds duration);

}  // namespace dro

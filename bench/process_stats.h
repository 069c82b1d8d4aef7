// process_stats.h - memory and activity of a process, from /proc. Each function throws std::runtime_error when the
// process is gone.
#pragma once

#include <sys/types.h>

namespace bench {

// In KiB.
struct Memory {
    long rss = 0;
    long pss = 0;
    long privateDirty = 0;
};
Memory memory_of(pid_t pid);

// The largest resident size since the process began, or since reset_peak, in KiB.
long peak_of(pid_t pid);
void reset_peak(pid_t pid);

struct Activity {
    int threads = 0;
    long contextSwitches = 0;  // of all threads that live, voluntary or not
    long cpuTicks = 0;         // of the whole process, threads that have ended included
};
Activity activity_of(pid_t pid);

}  // namespace bench

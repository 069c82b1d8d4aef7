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

// The largest resident size in KiB since the process started or since reset_peak.
long peak_of(pid_t pid);
void reset_peak(pid_t pid);

struct Activity {
    int threads = 0;
    long contextSwitches = 0;  // of the live threads, voluntary and involuntary
    long cpuTicks = 0;         // of the process, including exited threads
};
Activity activity_of(pid_t pid);

}  // namespace bench

// A preloaded library: a router's wall clock before and after its first time sync. It stays at 1970-01-01 00:00:10
// until the file that DRO_TEST_CLOCK_SET names exists. The monotonic clock is unaffected. The kernel's wall clock is
// right, so a deadline computed from this one has passed when it is set.
#define _GNU_SOURCE
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

int clock_gettime(clockid_t clock, struct timespec* now) {
    const int result = (int)syscall(SYS_clock_gettime, clock, now);
    const char* set = getenv("DRO_TEST_CLOCK_SET");
    if ((clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) && set != NULL && access(set, F_OK) != 0) {
        *now = (struct timespec){.tv_sec = 10};
    }
    return result;
}

time_t time(time_t* also) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (also != NULL) {
        *also = now.tv_sec;
    }
    return now.tv_sec;
}

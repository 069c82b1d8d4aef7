// A preloaded library: the wall clock jumps one hour forward or back on each call, while the monotonic clock is
// unaffected. A deadline based on the wall clock is then off by an hour.
#define _GNU_SOURCE
#include <stdatomic.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

static atomic_int looks;

int clock_gettime(clockid_t clock, struct timespec* now) {
    const int result = (int)syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        now->tv_sec += atomic_fetch_add(&looks, 1) % 2 == 0 ? 3600 : -3600;
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

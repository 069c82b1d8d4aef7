/* failing_calls.h - makes chosen calls of the C library fail, whichever part of the program makes them: the functions
 * in failing_calls.c come before the C library's, also for shared libraries. Link it only into programs without
 * sanitizers. Any thread. */
#ifndef FAILING_CALLS_H
#define FAILING_CALLS_H

#ifdef __cplusplus
extern "C" {
#endif

enum failing_kind {
    FAILING_MEMORY, /* allocations, from C++ too */
    FAILING_OPEN,   /* files, links to them, sockets, event descriptors */
    FAILING_READ,   /* also from sockets */
    FAILING_WRITE,  /* also to sockets; growing and shrinking */
    FAILING_SYNC,   /* fsync, fdatasync */
    FAILING_MAP,    /* mmap */
    FAILING_WATCH,  /* inotify */
    FAILING_THREAD, /* pthread_create */
    FAILING_LOCK,   /* record locks */
    FAILING_STAT,
    FAILING_POLL,
    FAILING_NEVER, /* writes to standard error */
};

/* From now on counts the calls of `kind`; the `times` calls from number `first` (from 1) fail with `error`. */
void failing_calls_start(enum failing_kind kind, long first, long times, int error);
/* Ends that and returns the number of calls counted. */
long failing_calls_stop(void);
/* Sets whether the calls of this thread count. Returns the former setting. */
int failing_calls_count(int whether);
/* Whether the calls of threads without a setting count; initially 0. */
extern int failing_calls_everywhere;

#ifdef __cplusplus
}
#endif
#endif

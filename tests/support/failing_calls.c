#define _GNU_SOURCE
#undef _FORTIFY_SOURCE
#include "failing_calls.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

static atomic_int g_kind = -1;
static atomic_long g_first, g_times, g_counted;
static atomic_int g_error;
int failing_calls_everywhere = 0;
static _Thread_local int g_counts = -1; /* unset */

void failing_calls_start(enum failing_kind kind, long first, long times, int error) {
    g_first = first;
    g_times = times;
    g_error = error;
    g_counted = 0;
    g_kind = (int)kind;
}

long failing_calls_stop(void) {
    g_kind = -1;
    return g_counted;
}

int failing_calls_count(int whether) {
    const int former = g_counts;
    g_counts = whether;
    return former;
}

/* The error with which this call fails, or 0. */
static int failure(enum failing_kind kind) {
    const int counts = g_counts < 0 ? failing_calls_everywhere : g_counts;
    if (counts == 0 || atomic_load_explicit(&g_kind, memory_order_relaxed) != (int)kind) {
        return 0;
    }
    const long number = atomic_fetch_add(&g_counted, 1) + 1;
    return number >= g_first && number < g_first + g_times ? g_error : 0;
}

/* glibc's own names: dlsym would allocate. */
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

#define ALLOCATION(name, parameters, ...)   \
    void* name parameters {                 \
        if (failure(FAILING_MEMORY) != 0) { \
            errno = ENOMEM;                 \
            return NULL;                    \
        }                                   \
        return __libc_##name(__VA_ARGS__);  \
    }
ALLOCATION(malloc, (size_t size), size)
ALLOCATION(calloc, (size_t count, size_t size), count, size)
ALLOCATION(realloc, (void* memory, size_t size), memory, size)
ALLOCATION(memalign, (size_t alignment, size_t size), alignment, size)

void* aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size) {
    void* const allocated = memalign(alignment, size);
    if (allocated == NULL) {
        return ENOMEM;
    }
    *memory = allocated;
    return 0;
}

/* `failed` is the result of a failing call. */
#define CALL(kind, failed, type, name, parameters, ...) \
    type name parameters;                               \
    type name parameters {                              \
        static type(*real) parameters;                  \
        if (real == NULL) {                             \
            *(void**)&real = dlsym(RTLD_NEXT, #name);   \
        }                                               \
        const int error = failure(kind);                \
        if (error != 0) {                               \
            errno = error;                              \
            return failed;                              \
        }                                               \
        return real(__VA_ARGS__);                       \
    }

CALL(FAILING_OPEN, -1, int, mkostemp, (char* name, int how), name, how)
CALL(FAILING_OPEN, -1, int, link, (const char* from, const char* to), from, to)
CALL(FAILING_OPEN, -1, int, eventfd, (unsigned count, int how), count, how)
CALL(FAILING_OPEN, -1, int, socket, (int domain, int type, int protocol), domain, type, protocol)
CALL(FAILING_OPEN, -1, int, socketpair, (int domain, int type, int protocol, int ends[2]), domain, type, protocol, ends)
CALL(FAILING_OPEN, NULL, FILE*, fopen, (const char* path, const char* how), path, how)
CALL(FAILING_READ, -1, ssize_t, read, (int file, void* bytes, size_t size), file, bytes, size)
CALL(FAILING_READ, -1, ssize_t, pread64, (int file, void* bytes, size_t size, off64_t at), file, bytes, size, at)
CALL(FAILING_READ, -1, ssize_t, recv, (int file, void* bytes, size_t size, int how), file, bytes, size, how)
CALL(file == STDERR_FILENO ? FAILING_NEVER : FAILING_WRITE, -1, ssize_t, write,
     (int file, const void* bytes, size_t size), file, bytes, size)
CALL(FAILING_WRITE, -1, ssize_t, pwrite64, (int file, const void* bytes, size_t size, off64_t at), file, bytes, size,
     at)
CALL(FAILING_WRITE, -1, ssize_t, send, (int file, const void* bytes, size_t size, int how), file, bytes, size, how)
CALL(FAILING_WRITE, -1, int, ftruncate64, (int file, off64_t size), file, size)
CALL(FAILING_SYNC, -1, int, fsync, (int file), file)
CALL(FAILING_SYNC, -1, int, fdatasync, (int file), file)
CALL(FAILING_MAP, MAP_FAILED, void*, mmap64, (void* at, size_t size, int access, int how, int file, off64_t offset), at,
     size, access, how, file, offset)
CALL(FAILING_WATCH, -1, int, inotify_init1, (int how), how)
CALL(FAILING_WATCH, -1, int, inotify_add_watch, (int watches, const char* path, uint32_t events), watches, path, events)
CALL(FAILING_THREAD, error, int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* how, void* (*body)(void*), void* argument), thread, how, body, argument)
CALL(FAILING_STAT, -1, int, stat, (const char* path, struct stat* result), path, result)
CALL(FAILING_STAT, -1, int, stat64, (const char* path, struct stat64* result), path, result)
CALL(FAILING_STAT, -1, int, lstat64, (const char* path, struct stat64* result), path, result)
CALL(FAILING_STAT, -1, int, fstat64, (int file, struct stat64* result), file, result)
CALL(FAILING_POLL, -1, int, poll, (struct pollfd * files, nfds_t count, int milliseconds), files, count, milliseconds)

static int takesLock(int command, const void* lock) {
    return (command == F_SETLK || command == F_SETLKW) && ((const struct flock*)lock)->l_type != F_UNLCK;
}

/* The last argument is a mode, a number or an address; missing ones are not used. */
#define VARIADIC(fails, kind, name, first, firstName, second, secondName) \
    int name(first firstName, second secondName, ...);                    \
    int name(first firstName, second secondName, ...) {                   \
        static int (*real)(first, second, ...);                           \
        if (real == NULL) {                                               \
            *(void**)&real = dlsym(RTLD_NEXT, #name);                     \
        }                                                                 \
        va_list rest;                                                     \
        va_start(rest, secondName);                                       \
        void* const last = va_arg(rest, void*);                           \
        va_end(rest);                                                     \
        const int error = (fails) ? failure(kind) : 0;                    \
        if (error != 0) {                                                 \
            errno = error;                                                \
            return -1;                                                    \
        }                                                                 \
        return real(firstName, secondName, last);                         \
    }
VARIADIC(1, FAILING_OPEN, open, const char*, path, int, how)
VARIADIC(1, FAILING_OPEN, open64, const char*, path, int, how)
VARIADIC(takesLock(command, last), FAILING_LOCK, fcntl, int, file, int, command)
VARIADIC(takesLock(command, last), FAILING_LOCK, fcntl64, int, file, int, command)

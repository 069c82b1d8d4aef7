#include "faults.h"

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

namespace dro_test {
namespace {

struct Rule {
    int error = 0;  // 0: not armed
    const void* object = nullptr;
    int skip = 0;
    int left = 0;
    int failed = 0;
};

std::array<Rule, 10> g_rules;
std::atomic<int> g_armed{0};
std::atomic_flag g_busy;  // no mutex: locking one comes through here

class RulesLock {
 public:
    RulesLock() {
        while (g_busy.test_and_set(std::memory_order_acquire)) {
        }
    }
    RulesLock(const RulesLock&) = delete;
    RulesLock& operator=(const RulesLock&) = delete;
    ~RulesLock() { g_busy.clear(std::memory_order_release); }
};

Rule& rule(Call call) {
    return g_rules[static_cast<std::size_t>(call)];
}

// The error this call is to fail with, or 0.
int error_for(Call call, const void* object = nullptr) {
    if (g_armed.load(std::memory_order_acquire) == 0) {
        return 0;
    }
    const RulesLock lock;
    Rule& current = rule(call);
    if (current.left == 0 || (current.object != nullptr && current.object != object)) {
        return 0;
    }
    if (current.skip > 0) {
        --current.skip;
        return 0;
    }
    --current.left;
    ++current.failed;
    return current.error;
}

// For calls that answer -1.
bool refuses(Call call) {
    const int error = error_for(call);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

}  // namespace

FailCalls::FailCalls(Call call, int error, const void* object, int skip, int count) : call_(call) {
    const RulesLock lock;
    rule(call) = {error, object, skip, count, 0};
    ++g_armed;
}

FailCalls::~FailCalls() {
    const RulesLock lock;
    rule(call_) = {};
    --g_armed;
}

int FailCalls::failed() const {
    const RulesLock lock;
    return rule(call_).failed;
}

}  // namespace dro_test

using dro_test::Call;
using dro_test::error_for;
using dro_test::refuses;

// The names are the linker's: it sends calls of NAME to __wrap_NAME, and __real_NAME to NAME.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)
extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_cond_signal(pthread_cond_t*);
int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_socketpair(int, int, int, int*);
int __real_listen(int, int);
ssize_t __real_write(int, const void*, size_t);
int __real_kill(pid_t, int);
int __real_sigaction(int, const struct sigaction*, struct sigaction*);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
    const int error = error_for(Call::threadCreate);
    return error != 0 ? error : __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
    const int error = error_for(Call::condSignal, condition);
    return error != 0 ? error : __real_pthread_cond_signal(condition);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until) {
    const int error = error_for(Call::condTimedWait, condition);
    return error != 0 ? error : __real_pthread_cond_timedwait(condition, mutex, until);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    const int error = error_for(Call::mutexLock, mutex);
    return error != 0 ? error : __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const int result = __real_pthread_mutex_unlock(mutex);
    const int error = error_for(Call::mutexUnlock, mutex);
    return error != 0 ? error : result;
}

int __wrap_socketpair(int domain, int type, int protocol, int* ends) {
    return refuses(Call::socketPair) ? -1 : __real_socketpair(domain, type, protocol, ends);
}

int __wrap_listen(int descriptor, int backlog) {
    return refuses(Call::listen) ? -1 : __real_listen(descriptor, backlog);
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
    return refuses(Call::write) ? -1 : __real_write(descriptor, bytes, count);
}

int __wrap_kill(pid_t process, int signal) {
    return refuses(Call::kill) ? -1 : __real_kill(process, signal);
}

int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* old) {
    return refuses(Call::sigaction) ? -1 : __real_sigaction(signal, action, old);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)

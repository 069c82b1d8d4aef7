#include "faults.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <csignal>

namespace dro_test {
namespace {

struct Rule {
    int error = 0;
    const void* object = nullptr;
    int failed = 0;
};

std::array<Rule, 9> g_rules;
std::atomic_flag g_busy;  // not a mutex: locking one would recurse into this file

template <typename Action>
auto with_rule(Call call, Action action) {
    while (g_busy.test_and_set(std::memory_order_acquire)) {
    }
    const auto result = action(g_rules[static_cast<std::size_t>(call)]);
    g_busy.clear(std::memory_order_release);
    return result;
}

// The error to inject into this call, or 0.
int error_for(Call call, const void* object = nullptr) {
    return with_rule(call, [object](Rule& rule) {
        const bool fails = rule.error != 0 && rule.failed == 0 && (rule.object == nullptr || rule.object == object);
        rule.failed += fails ? 1 : 0;
        return fails ? rule.error : 0;
    });
}

}  // namespace

FailCalls::FailCalls(Call call, int error, const void* object) : call_(call) {
    with_rule(call, [&](Rule& rule) { return rule = {error, object, 0}, 0; });
}

FailCalls::~FailCalls() {
    with_rule(call_, [](Rule& rule) { return rule = {}, 0; });
}

int FailCalls::failed() const {
    return with_rule(call_, [](const Rule& rule) { return rule.failed; });
}

// The linker's --wrap option fixes the names: calls of NAME go to __wrap_NAME, and calls of __real_NAME to NAME.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,bugprone-macro-parentheses)
extern "C" {

// `failed` is the return value of a failing call.
#define WRAP(failed, type, name, which, parameters, ...) \
    type __real_##name parameters;                       \
    type __wrap_##name parameters {                      \
        const int error = error_for which;               \
        if (error == 0) {                                \
            return __real_##name(__VA_ARGS__);           \
        }                                                \
        errno = error;                                   \
        return failed;                                   \
    }

WRAP(error, int, pthread_create, (Call::threadCreate),
     (pthread_t * thread, const pthread_attr_t* how, void* (*body)(void*), void* argument), thread, how, body, argument)
WRAP(error, int, pthread_cond_signal, (Call::condSignal, condition), (pthread_cond_t * condition), condition)
WRAP(error, int, pthread_cond_broadcast, (Call::condSignal, condition), (pthread_cond_t * condition), condition)
WRAP(error, int, pthread_cond_timedwait, (Call::condTimedWait, condition),
     (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until), condition, mutex, until)
WRAP(error, int, pthread_mutex_lock, (Call::mutexLock, mutex), (pthread_mutex_t * mutex), mutex)
WRAP(-1, int, socketpair, (Call::socketPair), (int domain, int type, int protocol, int* ends), domain, type, protocol,
     ends)
WRAP(-1, ssize_t, write, (Call::write), (int descriptor, const void* bytes, size_t count), descriptor, bytes, count)
WRAP(-1, int, kill, (Call::kill), (pid_t process, int signal), process, signal)
WRAP(-1, int, link, (Call::link), (const char* from, const char* to), from, to)
WRAP(-1, int, sigaction, (Call::sigaction), (int signal, const struct sigaction* action, struct sigaction* old), signal,
     action, old)

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,bugprone-macro-parentheses)

}  // namespace dro_test

// faults.h - injected failures of system calls, for outcomes that cannot be caused otherwise. The test programs are
// linked so that calls from the agent's code pass through it; calls from shared libraries do not. Any thread.
#pragma once

#include <cerrno>

namespace dro_test {

enum class Call {
    threadCreate,   // pthread_create; object: none
    condSignal,     // pthread_cond_signal and pthread_cond_broadcast; object: the condition variable
    condTimedWait,  // pthread_cond_timedwait; object: the condition variable
    mutexLock,      // pthread_mutex_lock; object: the mutex, which must be given because everything locks
    socketPair,     // these return -1 and set errno
    write,
    kill,
    link,
    sigaction,
};

// While it exists, the next call on `object` (any object when null) fails with `error`. One at a time per Call.
class FailCalls {
 public:
    FailCalls(Call call, int error, const void* object = nullptr);
    FailCalls(const FailCalls&) = delete;
    FailCalls& operator=(const FailCalls&) = delete;
    ~FailCalls();

    // The number of calls that have failed so far.
    int failed() const;

 private:
    Call call_;
};

}  // namespace dro_test

// faults.h - failures of the system's own calls, for outcomes that cannot be had otherwise. The test programs are
// linked so that calls from the agent's code come through here; calls from shared libraries do not. Any thread.
#pragma once

#include <cerrno>

namespace dro_test {

enum class Call {
    threadCreate,   // pthread_create; object: none
    condSignal,     // pthread_cond_signal and pthread_cond_broadcast; object: the condition variable
    condTimedWait,  // pthread_cond_timedwait; object: the condition variable
    mutexLock,      // pthread_mutex_lock; object: the mutex, to be named, since everything locks
    socketPair,     // these return -1 and set errno
    write,
    kill,
    link,
    sigaction,
};

// While it lives, the next call fails with `error`: one on `object`, or on any when it is null. One at a time for each
// Call.
class FailCalls {
 public:
    FailCalls(Call call, int error, const void* object = nullptr);
    FailCalls(const FailCalls&) = delete;
    FailCalls& operator=(const FailCalls&) = delete;
    ~FailCalls();

    // Calls that have failed so far.
    int failed() const;

 private:
    Call call_;
};

}  // namespace dro_test

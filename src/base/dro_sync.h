// dro_sync.h - locks and the monitors' one-shot signal, checked by clang's thread-safety analysis. Any thread.
#pragma once

#include <pthread.h>

#include <chrono>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#if defined(__clang__)
#define DRO_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define DRO_THREAD_ANNOTATION(x)
#endif
#define DRO_CAPABILITY(x) DRO_THREAD_ANNOTATION(capability(x))
#define DRO_SCOPED_CAPABILITY DRO_THREAD_ANNOTATION(scoped_lockable)
#define DRO_GUARDED_BY(x) DRO_THREAD_ANNOTATION(guarded_by(x))
#define DRO_REQUIRES(...) DRO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define DRO_ACQUIRE(...) DRO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define DRO_TRY_ACQUIRE(...) DRO_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define DRO_RELEASE(...) DRO_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define DRO_NO_ANALYSIS DRO_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace dro {

// A value that is never destroyed, because threads still running at exit may use it.
template <typename T>
class Immortal {
 public:
    template <typename... Arguments>
    explicit Immortal(Arguments&&... arguments) {
        std::construct_at(reinterpret_cast<T*>(space_), std::forward<Arguments>(arguments)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;
    ~Immortal() = default;

    T* get() { return std::launder(reinterpret_cast<T*>(space_)); }
    T& operator*() { return *get(); }
    T* operator->() { return get(); }

 private:
    alignas(T) unsigned char space_[sizeof(T)];
};

// A mutex whose lock and unlock return the pthread result (0 or an error number).
class DRO_CAPABILITY("mutex") Mutex {
 public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Returns true when the lock is acquired; `result` is the pthread result.
    bool lock(int& result) noexcept DRO_TRY_ACQUIRE(true) {
        result = pthread_mutex_lock(&mutex_);
        return result == 0;
    }
    int unlock() noexcept DRO_RELEASE() { return pthread_mutex_unlock(&mutex_); }
    pthread_mutex_t* native() { return &mutex_; }

 private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a mutex for a scope. Callers that handle a failed lock use Mutex::lock instead.
class DRO_SCOPED_CAPABILITY MutexLock {
 public:
    explicit MutexLock(Mutex& mutex) DRO_ACQUIRE(mutex) : mutex_(mutex) { pthread_mutex_lock(mutex_.native()); }
    ~MutexLock() DRO_RELEASE() { pthread_mutex_unlock(mutex_.native()); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

 private:
    Mutex& mutex_;
};

// Releases a mutex, acquired by Mutex::lock, at the end of a scope.
class DRO_SCOPED_CAPABILITY AdoptedLock {
 public:
    explicit AdoptedLock(Mutex& mutex) DRO_REQUIRES(mutex) : mutex_(mutex) {}
    ~AdoptedLock() DRO_RELEASE() { mutex_.unlock(); }
    AdoptedLock(const AdoptedLock&) = delete;
    AdoptedLock& operator=(const AdoptedLock&) = delete;

 private:
    Mutex& mutex_;
};

// A condition variable with deadlines on the monotonic clock.
class Condition {
 public:
    Condition();
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    int wait(Mutex& mutex) DRO_REQUIRES(mutex) { return pthread_cond_wait(&condition_, mutex.native()); }
    // Returns 0 (also on a spurious wakeup), ETIMEDOUT, or another error number.
    int wait_until(Mutex& mutex, std::chrono::steady_clock::time_point deadline) DRO_REQUIRES(mutex);
    int notify_all() { return pthread_cond_broadcast(&condition_); }

 private:
    pthread_cond_t condition_{};
};

enum class Waited {
    signalled,  // by signal(): the service wrote its answer
    answered,   // by signal_order(): the list of this transaction was pushed
    timedOut,
    failed,
    stopped,
};

// Wakes a monitor whose service has answered. A signal that no monitor is waiting for is lost. The signalling thread
// never waits for a lock that a monitor holds while it reports.
class MonitorSignal {
 public:
    // Waits until a signal, the deadline or the process's shutdown. Releases `held` during the wait, as a condition
    // variable does. `uuid` is the order's transaction.
    Waited wait_until(Mutex& held, std::chrono::steady_clock::time_point deadline, const char* uuid) DRO_REQUIRES(held);

    // Wakes the longest-waiting monitor. Returns 0, or the error number of a failed notification, which wakes no
    // monitor.
    int signal();

    // Wakes every wait for the transaction `uuid`. Returns the same values as signal().
    int signal_order(const char* uuid);

    // Makes all current and future waits return Waited::stopped. Shutdown only.
    void stop();

 private:
    friend class MonitorSignalProbe;  // for tests

    // One wait, in a list ordered by age. A signal is assigned to a waiter, so a later wait cannot consume it.
    struct Waiter {
        const char* uuid;
        std::optional<Waited> woken{};
        Waiter* next = nullptr;
    };

    void join(Waiter& waiter) DRO_REQUIRES(inner_);
    void leave(const Waiter& waiter) DRO_REQUIRES(inner_);
    int wake(Waiter& waiter, Waited with) DRO_REQUIRES(inner_);
    Waited wait_signalled(const Waiter& waiter, std::chrono::steady_clock::time_point deadline) DRO_REQUIRES(inner_);

    Mutex inner_;  // held only briefly
    Condition condition_;
    Waiter* oldest_ DRO_GUARDED_BY(inner_) = nullptr;
    bool stopped_ DRO_GUARDED_BY(inner_) = false;
};

}  // namespace dro

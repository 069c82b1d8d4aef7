// delayed_jobs.h - a thread that does small jobs after a while, in the order in which they are due. Any thread may add
// one.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace lab {

class DelayedJobs {
 public:
    using Job = std::function<void()>;

    DelayedJobs();
    // Waits for the job that runs; those that wait are dropped.
    ~DelayedJobs() = default;
    DelayedJobs(const DelayedJobs&) = delete;
    DelayedJobs& operator=(const DelayedJobs&) = delete;

    // A job that throws is reported on standard error.
    void after(std::chrono::milliseconds delay, Job job);

 private:
    void run(const std::stop_token& stop);

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::multimap<std::chrono::steady_clock::time_point, Job> jobs_;
    std::jthread thread_;  // last, so that it ends before what it uses
};

}  // namespace lab

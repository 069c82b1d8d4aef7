// delayed_jobs.h - a thread that runs short jobs after a delay, in due order. Any thread may add jobs.
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
    // Waits for the running job and drops the pending ones.
    ~DelayedJobs() = default;
    DelayedJobs(const DelayedJobs&) = delete;
    DelayedJobs& operator=(const DelayedJobs&) = delete;

    // Runs `job` on the jobs thread after `delay`. An exception from a job is printed on standard error.
    void after(std::chrono::milliseconds delay, Job job);

 private:
    void run(const std::stop_token& stop);

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::multimap<std::chrono::steady_clock::time_point, Job> jobs_;
    std::jthread thread_;  // last member: stops before the members it uses are destroyed
};

}  // namespace lab

#include "delayed_jobs.h"

#include <cstdio>
#include <exception>

namespace lab {

DelayedJobs::DelayedJobs() : thread_([this](const std::stop_token& stop) { run(stop); }) {}

void DelayedJobs::after(std::chrono::milliseconds delay, Job job) {
    const std::lock_guard lock(mutex_);
    jobs_.emplace(std::chrono::steady_clock::now() + delay, std::move(job));
    changed_.notify_all();
}

void DelayedJobs::run(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        if (jobs_.empty()) {
            changed_.wait(lock, stop, [this] { return !jobs_.empty(); });
            continue;
        }
        const auto due = jobs_.begin()->first;
        if (std::chrono::steady_clock::now() < due) {
            changed_.wait_until(lock, stop, due, [&] { return jobs_.begin()->first < due; });
            continue;
        }
        const Job job = std::move(jobs_.extract(jobs_.begin()).mapped());
        lock.unlock();
        try {
            job();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "drolab: %s\n", error.what());
        }
        lock.lock();
    }
}

}  // namespace lab

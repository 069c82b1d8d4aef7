// circle_agent.h - the router's agent of the parental-control service: reads orders from CircleCfgInternal and answers
// after a delay. Any thread may call it.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

#include "delayed_jobs.h"
#include "store.h"
#include "timeline.h"

namespace lab {

enum class CircleMood { Success, Fail, Silent };

class CircleAgent {
 public:
    explicit CircleAgent(Timeline& timeline);
    // Waits for an answer in progress and drops the pending ones.
    ~CircleAgent() { store_.follow({}, nullptr); }
    CircleAgent(const CircleAgent&) = delete;
    CircleAgent& operator=(const CircleAgent&) = delete;

    void mood(CircleMood mood) { mood_ = mood; }
    // Sets the error text of later failures.
    void failsWith(const std::string& error);
    // Sets the time between an order and its answer. An answer is lost when it arrives before the agent's monitor
    // waits.
    void delay(std::chrono::milliseconds delay) { delayMs_ = delay.count(); }
    std::string describe() const;

    // Writes an answer without an order.
    void answerNow(const std::string& answer, const std::string& error);
    void reportRunning(bool running);
    void reportProvisioned(bool provisioned);
    void reportClient(const std::string& status);

 private:
    void noticed(std::string_view table, std::string_view name);
    void answerOrder(const std::string& order);
    void answerToggle(const std::string& order);
    void fail(const Field& answer);
    std::string error();
    void note(const std::string& what, Tone tone = Tone::Plain);

    Timeline& timeline_;
    std::atomic<CircleMood> mood_ = CircleMood::Success;
    std::atomic<std::int64_t> delayMs_;
    std::mutex mutex_;
    std::string error_ = "radio not ready";
    Store store_;
    DelayedJobs jobs_;  // last member: jobs stop before the members they use are destroyed
};

}  // namespace lab

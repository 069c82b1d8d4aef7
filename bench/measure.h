// measure.h - alternating time samples of the agent and its floor, and their report. One thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

class Samples {
 public:
    void add(Clock::duration sample) {
        microseconds_.push_back(std::chrono::duration<double, std::micro>(sample).count());
    }

    // Returns microseconds. Throws std::runtime_error when there is no sample.
    double median() const { return quantile(0.5); }
    double p99() const { return quantile(0.99); }
    std::size_t count() const { return microseconds_.size(); }

    // Returns the samples in ascending order. When there are more than `most`, returns `most` of them at even
    // distances, including the smallest and the largest.
    std::vector<double> ascending(std::size_t most) const;

 private:
    double quantile(double part) const;

    std::vector<double> microseconds_;
};

struct Pair {
    Samples ours;
    Samples floor;
};

// Alternates between samples of the agent and of the floor, `rounds` times, so both run under the same conditions. The
// first few of each are a warm-up and are not counted.
template <typename Ours, typename Floor>
Pair in_turn(int rounds, Ours ours, Floor floor) {
    constexpr int kWarmUp = 3;
    Pair samples;
    for (int round = -kWarmUp; round < rounds; ++round) {
        const Clock::duration mine = ours();
        const Clock::duration least = floor();
        if (round >= 0) {
            samples.ours.add(mine);
            samples.floor.add(least);
        }
    }
    return samples;
}

// Returns the duration of `work`.
template <typename Work>
Clock::duration time_of(Work work) {
    const auto start = Clock::now();
    work();
    return Clock::now() - start;
}

// A result's place in a series of growing work: the series, and the amount of work.
struct Work {
    std::string series;
    double amount = 0;
};

struct Result {
    std::string name;
    std::string unit;
    double value = 0;
    std::optional<double> p99;
    std::optional<double> floor;
    std::optional<double> floorP99;
    std::size_t samples = 0;
    std::vector<double> times;  // ascending, at most kKeptSamples
    std::vector<double> floorTimes;
    std::optional<Work> work;
};

inline constexpr std::size_t kKeptSamples = 300;

class Report {
 public:
    // Adds the medians of the agent and the floor, in microseconds.
    void compare(const std::string& name, const Pair& pair, std::optional<Work> work = {});
    // Adds a number that is not a time, with a floor when there is one.
    void fact(const std::string& name, const std::string& unit, double value, std::optional<double> floor = {},
              std::optional<Work> work = {});

    // Returns all results as a JSON array.
    std::string json() const;

 private:
    void add(Result result);

    std::vector<Result> results_;
};

}  // namespace bench

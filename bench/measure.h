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

    // In microseconds. Throws std::runtime_error when there is no sample.
    double median() const { return quantile(0.5); }
    double p99() const { return quantile(0.99); }
    std::size_t count() const { return microseconds_.size(); }

    // The samples in ascending order; of more than `most`, as many at even distances, the least and the largest among
    // them.
    std::vector<double> ascending(std::size_t most) const;

 private:
    double quantile(double part) const;

    std::vector<double> microseconds_;
};

struct Pair {
    Samples ours;
    Samples floor;
};

// Takes a sample of ours and one of the floor in turn, `rounds` times, so that both see the same machine. The first few
// of each warm up and do not count.
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

// How long `work` took.
template <typename Work>
Clock::duration time_of(Work work) {
    const auto start = Clock::now();
    work();
    return Clock::now() - start;
}

// Where a result stands on a road whose work grows: in which series, and how much work it was.
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
    std::vector<double> times;  // ascending, not more than kKeptSamples
    std::vector<double> floorTimes;
    std::optional<Work> work;
};

inline constexpr std::size_t kKeptSamples = 300;

class Report {
 public:
    // Medians in microseconds beside each other.
    void compare(const std::string& name, const Pair& pair, std::optional<Work> work = {});
    // A number that is no time; `floor` if there is one to hold it against.
    void fact(const std::string& name, const std::string& unit, double value, std::optional<double> floor = {},
              std::optional<Work> work = {});

    // One JSON array of all results.
    std::string json() const;

 private:
    void add(Result result);

    std::vector<Result> results_;
};

}  // namespace bench

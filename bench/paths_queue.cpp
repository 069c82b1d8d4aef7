// The queue: filled while the cloud stalls, then drained.
#include <wait.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <thread>

#include "paths.h"
#include "process_stats.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kPath = "syncCD/";
constexpr int kSlots = 256;

// Returns the address of an event's device.
std::string device_in(const dro_test::Request& request) {
    constexpr std::string_view kKey = R"("mac":")";
    constexpr std::size_t kLength = 17;
    const auto place = request.body.find(kKey);
    return place == std::string::npos ? "" : request.body.substr(place + kKey.size(), kLength);
}

void announce(const Router& router, const Notices& notices, int row, std::size_t mark) {
    write_uint(router, "DALHNotifyNDN", "Index", static_cast<std::uint32_t>(row));
    notices.wait_for("RADebugLog.dbgArg1", mark);
}

// Polls rarely. Each poll makes the server copy all its requests, and the measurement includes the server's answers.
std::vector<dro_test::Request> drained(const Router& router) {
    constexpr std::chrono::milliseconds kPollPause{50};
    const auto deadline = Clock::now() + dro_test::kPatience;
    while (router.cloud.requests(kPath).size() < kSlots && Clock::now() < deadline) {
        std::this_thread::sleep_for(kPollPause);
    }
    return arrived(router.cloud, kSlots, kPath);
}

void require_order(const std::vector<dro_test::Request>& requests) {
    for (int row = 0; row < kSlots; ++row) {
        if (device_in(requests[static_cast<std::size_t>(row)]) != mac_of(row)) {
            throw std::runtime_error("event " + std::to_string(row) + " arrived out of order");
        }
    }
}

// Time until the first `events` of the queue have arrived.
constexpr std::array kMilestones{2, 32, 64, 128, 192, kSlots};
struct DrainTimes {
    Pair gaps;
    std::array<Pair, kMilestones.size()> until;
    std::array<long, kMilestones.size()> memory{};  // growth over the empty queue, in KiB
};

// Adds one drain to the agent's or the floor's samples: the time from each event to the next, without the first event,
// which has stalled, and the times of the milestones.
void add_drain(const std::vector<dro_test::Request>& requests, Clock::time_point start, DrainTimes& times,
               Samples Pair::*whose) {
    for (std::size_t i = 2; i < requests.size(); ++i) {
        (times.gaps.*whose).add(requests[i].at - requests[i - 1].at);
    }
    for (std::size_t i = 0; i < kMilestones.size(); ++i) {
        (times.until[i].*whose).add(requests[static_cast<std::size_t>(kMilestones[i]) - 1].at - start);
    }
}

void note_memory(int events, long grown, DrainTimes& times) {
    const auto* milestone = std::find(kMilestones.begin(), kMilestones.end(), events);
    if (milestone != kMilestones.end()) {
        long& most = times.memory[static_cast<std::size_t>(milestone - kMilestones.begin())];
        most = std::max(most, grown);
    }
}

// Fills the queue of a newly started agent and drains it.
void fill_and_drain(DrainTimes& times) {
    Router router;
    const RunningAgent agent(router);
    Notices notices({"RADebugLog"});
    announce(router, notices, 0, 1);
    const std::string body = arrived(router.cloud, 1, kPath).front().body;
    std::this_thread::sleep_for(kSettle);
    router.cloud.forget();
    const long before = memory_of(agent.pid()).rss;
    notices.forget();
    router.cloud.script(kPath, {dro_test::kStall});
    for (int row = 0; row < kSlots; ++row) {
        announce(router, notices, row, static_cast<std::size_t>(row) + 1);
        note_memory(row + 1, memory_of(agent.pid()).rss - before, times);
    }
    auto start = Clock::now();
    router.cloud.release();
    const auto requests = drained(router);
    require_order(requests);
    add_drain(requests, start, times, &Pair::ours);
    router.cloud.forget();

    const BarePost post = router.bare_post(kPath);
    post.send(body);
    start = Clock::now();
    for (int event = 1; event < kSlots; ++event) {
        post.send(body);
    }
    add_drain(arrived(router.cloud, kSlots, kPath), start, times, &Pair::floor);
}

}  // namespace

void measure_queue(Report& report) {
    constexpr int kRounds = 4;
    DrainTimes times;
    for (int round = 0; round < kRounds; ++round) {
        fill_and_drain(times);
    }
    report.compare("queue drained, each event", times.gaps);
    for (std::size_t i = 0; i < kMilestones.size(); ++i) {
        const std::string name = "queue of " + std::to_string(kMilestones[i]) + " events";
        const Work work{"queue", static_cast<double>(kMilestones[i])};
        report.compare(name + " drained", times.until[i], work);
        report.fact(name + ", memory", "KiB", static_cast<double>(times.memory[i]), {}, work);
    }
}

}  // namespace bench

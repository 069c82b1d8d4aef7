// Circle: from the Circle agent's answer to the report at the cloud, for two hundred activations.

#include <stdexcept>
#include <thread>

#include "paths.h"
#include "process_stats.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kPath = "pc/circle/cuuid";

// Time that the simulated Circle agent takes for an order. The agent's monitor is waiting by then.
constexpr std::chrono::milliseconds kAtWork{10};

// Orders, answers and reports one activation. Returns the report's duration and its body.
Clock::duration activate(const Router& router, Notices& notices, int number, std::string& body) {
    notices.forget();
    deliver(command("circle-" + std::to_string(number), "ACTIVATE_CIRCLE", R"({"overRide":0})"));
    notices.wait_for("DroStatus.CircleAct", 2);  // reset, then set
    std::this_thread::sleep_for(kAtWork);
    const auto answered = Clock::now();
    if (hab_set_enum(router.session(), "CircleCfgInternal", 0, "activationStatusDROA", "activated") != HAB_OK) {
        throw std::runtime_error("the store refused the answer");
    }
    const dro_test::Request report = arrived(router.cloud, 1, kPath).front();
    body = report.body;
    notices.wait_for("CircleCfgInternal.actionDROA", 2);  // ordered, then reset
    std::this_thread::sleep_for(kSettle);
    return report.at - answered;
}

Clock::duration report_bare(Router& router, const BarePost& post, const std::string& body) {
    constexpr int kAnswer = 26;
    constexpr int kReads = 7;
    const auto start = Clock::now();
    router.bare.write(kAnswer, 0, "activated");
    for (int read = 0; read < kReads; ++read) {
        router.bare.read(read, 0);
    }
    post.send(body);
    return arrived(router.cloud, 1, kPath).front().at - start;
}

}  // namespace

void measure_circle(Report& report) {
    constexpr int kCycles = 200;
    Router router;
    const RunningAgent agent(router);
    Notices notices({"DroStatus", "CircleCfgInternal"});
    const BarePost post = router.bare_post(kPath);
    std::string body;
    Memory before;
    Activity active;
    int number = 0;
    const auto ours = [&] {
        if (number == 1) {
            before = memory_of(agent.pid());
            active = activity_of(agent.pid());
        }
        const auto duration = activate(router, notices, number++, body);
        router.cloud.forget();
        return duration;
    };
    const auto floor = [&] {
        const auto duration = report_bare(router, post, body);
        router.cloud.forget();
        std::this_thread::sleep_for(kSettle);
        return duration;
    };
    report.compare("Circle answer to the cloud", in_turn(kCycles, ours, floor));
    report.fact("200 activations, growth", "KiB", static_cast<double>(memory_of(agent.pid()).rss - before.rss));
    report.fact("200 activations, more threads", "threads", activity_of(agent.pid()).threads - active.threads);
}

}  // namespace bench

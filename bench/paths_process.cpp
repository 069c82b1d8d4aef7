// The process itself: start-up time, and cost while idle.
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <thread>

#include "paths.h"
#include "process_stats.h"
#include "router.h"

namespace bench {
namespace {

dro_test::Launch floor_launch(const std::vector<std::string>& arguments) {
    return program_launch(DRO_BENCH_START_FLOOR, arguments);
}

// From the program's start, as the parent process observes it, to the first connection on its second port.
Clock::duration time_to_link(const Router& router, dro_test::Launch launch) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const auto start_program = launch.before;
    launch.before = [&] {
        const auto now = Clock::now();
        if (write(ends[1], &now, sizeof now) == sizeof now && start_program) {
            start_program();
        }
    };
    dro_test::AgentProcess process(router.store, launch);
    const auto linked = wait_for_port(dro_test::kEventPort);
    Clock::time_point started;
    const bool known = read(ends[0], &started, sizeof started) == sizeof started;
    close(ends[0]);
    close(ends[1]);
    process.signal(SIGUSR1);
    if (!known || process.wait_exit() != 0) {
        throw std::runtime_error("a program did not start or exit as expected");
    }
    return linked - started;
}

void report_memory(Report& report, const std::string& when, const Memory& memory, const Memory& floor) {
    report.fact("resident, " + when, "KiB", static_cast<double>(memory.rss), static_cast<double>(floor.rss));
    report.fact("proportional, " + when, "KiB", static_cast<double>(memory.pss), static_cast<double>(floor.pss));
    report.fact("private dirty, " + when, "KiB", static_cast<double>(memory.privateDirty),
                static_cast<double>(floor.privateDirty));
}

Memory floor_memory(const Router& router, const std::vector<std::string>& arguments) {
    dro_test::AgentProcess process(router.store, floor_launch(arguments));
    wait_for_port(dro_test::kEventPort);
    const Memory memory = memory_of(process.pid());
    process.signal(SIGUSR1);
    process.wait_exit();
    return memory;
}

}  // namespace

void measure_start(Report& report) {
    constexpr int kRounds = 40;
    Router router;
    report.compare("start to link open", in_turn(
                                             kRounds, [&] { return time_to_link(router, {}); },
                                             [&] { return time_to_link(router, floor_launch({})); }));
}

void measure_idle(Report& report, std::chrono::seconds duration) {
    constexpr std::chrono::milliseconds kQuiet{500};
    Router router;
    const Memory floorBefore = floor_memory(router, {});
    const Memory floorAfter = floor_memory(router, {router.cloud.base_url() + "transactionAck/", ca_bundle()});
    router.cloud.forget();

    const RunningAgent agent(router);
    std::this_thread::sleep_for(kQuiet);
    report_memory(report, "before a request", memory_of(agent.pid()), floorBefore);
    deliver(command("idle-1", "TAG_CD", R"({"cdMac":"02:00:5E:00:53:01","tagStatus":1})"));
    arrived(router.cloud, 1, "transactionAck/");
    std::this_thread::sleep_for(kQuiet);
    report_memory(report, "after a request", memory_of(agent.pid()), floorAfter);

    const Activity before = activity_of(agent.pid());
    std::this_thread::sleep_for(duration);
    const Activity after = activity_of(agent.pid());
    const double wakeups = static_cast<double>(after.contextSwitches - before.contextSwitches);
    report.fact("idle, context switches", "", wakeups);
    report.fact("idle, CPU ticks", "ticks", static_cast<double>(after.cpuTicks - before.cpuTicks));
    report.fact("idle, seconds watched", "s", static_cast<double>(duration.count()));
    report_memory(report, "after idling", memory_of(agent.pid()), floorAfter);
}

}  // namespace bench

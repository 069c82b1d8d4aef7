// Cloud commands: one at a time, and a thousand in a row.

#include <thread>

#include "process_stats.h"
#include "roads.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kAckPath = "transactionAck/";
struct BlockTimes {
    Pair triggered;
    Pair acknowledged;
};

// Noticed by another process that reads the journal, in the agent's store as in the bare program's.
BlockTimes take_blocks(Router& router, int rounds) {
    Notices notices({"DALHConfig"});
    BareStore bareNotices(command_floor_store(router));
    bareNotices.listen();
    const BarePost post = router.bare_post(kAckPath);
    BlockTimes times;
    std::string body;
    for (int round = -3; round < rounds; ++round) {  // the first three warm up
        notices.forget();
        auto start = deliver(block_command(round));
        const auto triggered = notices.wait_for("DALHConfig.ProcessID") - start;
        const dro_test::Request ack = arrived(router.cloud, 1, kAckPath).front();
        const auto acknowledged = ack.at - start;
        body = ack.body;
        router.cloud.forget();
        std::this_thread::sleep_for(kSettle);

        start = deliver(block_command(round), kFloorPort);
        bareNotices.wait_for(kBlockWrites);
        const auto bareTriggered = Clock::now() - start;
        arrived(router.cloud, 1, kAckPath);
        router.cloud.forget();
        std::this_thread::sleep_for(kSettle);

        start = Clock::now();
        write_block(router.bare);
        post.send(body);
        const auto received = arrived(router.cloud, 1, kAckPath).front().at - start;
        router.cloud.forget();
        std::this_thread::sleep_for(kSettle);
        if (round >= 0) {
            times.triggered.ours.add(triggered);
            times.triggered.floor.add(bareTriggered);
            times.acknowledged.ours.add(acknowledged);
            times.acknowledged.floor.add(received);
        }
    }
    return times;
}

// Delivers `count` commands and waits until all are acknowledged. One is at work and the next one waits: more would not
// be faster, and the link's backlog of one is soon full.
void run_commands(const Router& router, int first, int count) {
    for (int number = 0; number < count; ++number) {
        deliver(block_command(first + number));
        arrived(router.cloud, static_cast<std::size_t>(number), kAckPath);
    }
    arrived(router.cloud, static_cast<std::size_t>(count), kAckPath);
}

}  // namespace

void measure_block(Report& report) {
    constexpr int kRounds = 100;
    Router router;
    const RunningAgent agent(router);
    const dro_test::AgentProcess floor(router.store, command_floor(router));
    wait_for_port(kFloorPort);
    const BlockTimes times = take_blocks(router, kRounds);
    report.compare("block, store triggered", times.triggered);
    report.compare("block, acknowledged", times.acknowledged);
}

void measure_commands(Report& report) {
    constexpr int kCommands = 1'000;
    constexpr int kAtOnce = 20;
    Router router;
    const RunningAgent agent(router);
    const BarePost post = router.bare_post(kAckPath);
    run_commands(router, 0, kAtOnce);
    const std::string body = router.cloud.requests(kAckPath).front().body;
    router.cloud.forget();
    const Memory before = memory_of(agent.pid());
    const int threadsBefore = activity_of(agent.pid()).threads;

    Pair batches;
    for (int first = 0; first < kCommands; first += kAtOnce) {
        batches.ours.add(time_of([&] { run_commands(router, first, kAtOnce); }) / kAtOnce);
        router.cloud.forget();
        batches.floor.add(time_of([&] {
                              for (int number = 0; number < kAtOnce; ++number) {
                                  write_block(router.bare);
                                  post.send(body);
                              }
                          }) /
                          kAtOnce);
        router.cloud.forget();
    }
    constexpr double kMicroseconds = 1e6;
    report.compare("commands in a row, each", batches);
    report.fact("commands in a row", "1/s", kMicroseconds / batches.ours.median(),
                kMicroseconds / batches.floor.median());
    std::this_thread::sleep_for(kSettle);
    report.fact("commands in a row, growth", "KiB", static_cast<double>(memory_of(agent.pid()).rss - before.rss));
    report.fact("commands in a row, more threads", "threads", activity_of(agent.pid()).threads - threadsBefore);
}

}  // namespace bench

// Cloud commands: one at a time, and a thousand in succession.

#include <thread>

#include "paths.h"
#include "process_stats.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kAckPath = "transactionAck/";

// One command at a time. Each is acknowledged before the floor does the same work.
Pair take_blocks(Router& router, int rounds) {
    const BarePost post = router.bare_post(kAckPath);
    std::string body;
    int number = 0;
    return in_turn(
        rounds,
        [&] {
            const auto start = deliver(block_command(number++));
            const dro_test::Request ack = arrived(router.cloud, 1, kAckPath).front();
            body = ack.body;
            router.cloud.forget();
            std::this_thread::sleep_for(kSettle);
            return ack.at - start;
        },
        [&] {
            const auto start = Clock::now();
            write_block(router.bare);
            post.send(body);
            const auto received = arrived(router.cloud, 1, kAckPath).front().at;
            router.cloud.forget();
            std::this_thread::sleep_for(kSettle);
            return received - start;
        });
}

// Delivers `count` commands and waits until all are acknowledged. At most two are in progress: more would not be
// faster, and would fill the link's backlog of one.
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
    report.compare("block, acknowledged", take_blocks(router, kRounds));
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
    report.compare("commands in a row, each", batches);
    std::this_thread::sleep_for(kSettle);
    report.fact("commands in a row, more threads", "threads", activity_of(agent.pid()).threads - threadsBefore);
}

}  // namespace bench

// How the cost grows with the size of a command, and of an event.

#include <string>
#include <thread>

#include "agent_probe.h"
#include "dro_dispatcher.h"
#include "dro_durations.h"
#include "dro_fifo.h"
#include "dro_stop.h"
#include "local_agent.h"
#include "roads.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kAckPath = "transactionAck/";
constexpr const char* kEventPath = "syncCD/";

std::string size_name(std::size_t bytes) {
    constexpr std::size_t kKiB = 1024;
    return bytes % kKiB == 0 ? std::to_string(bytes / kKiB) + " KiB" : std::to_string(bytes) + " bytes";
}

// From before the connection to the acknowledgement's arrival.
Clock::duration acknowledge(Router& router, const std::string& message, int port) {
    const auto start = Clock::now();
    deliver(message, port);
    const auto received = arrived(router.cloud, 1, kAckPath).front().at;
    router.cloud.forget();
    std::this_thread::sleep_for(kSettle);
    return received - start;
}

void measure_message_sizes(Report& report) {
    constexpr int kRounds = 60;
    // The last is the largest that arrives whole whatever pieces it is read in.
    constexpr std::array<std::size_t, 6> kSizes{256, 8192, 16384, 32768, 49152, 65536};
    Router router;
    const RunningAgent agent(router);
    const dro_test::AgentProcess floor(router.store, command_floor(router));
    wait_for_port(kFloorPort);
    for (const std::size_t size : kSizes) {
        const std::string message = block_command(1, size);
        const auto on = [&](int port) { return [&, port] { return acknowledge(router, message, port); }; };
        report.compare("command of " + size_name(size),
                       in_turn(kRounds, on(dro_test::kNotificationPort), on(kFloorPort)),
                       Work{"message", static_cast<double>(size)});
    }
}

// The dispatcher in this process, between an event that is queued here and the cloud.
class Dispatcher {
 public:
    Dispatcher() { dro::init_dispatcher(); }
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher() {
        dro::cancel_dispatcher_thread();
        dro::wake_dispatcher(false);
        dro_test::clear_stop();
    }
};

Clock::duration push_ours(Router& router, const std::string& payload, std::string& body) {
    const auto start = Clock::now();
    dro::enqueue_buf({"UPDATE_CD", payload});
    const dro_test::Request request = arrived(router.cloud, 1, kEventPath).front();
    body = request.body;
    router.cloud.forget();
    while (!dro::isQueueEmpty()) {
        std::this_thread::sleep_for(kSettle);
    }
    return request.at - start;
}

Clock::duration push_bare(Router& router, const BarePost& post, const std::string& body) {
    constexpr int kMarkField = 24;
    constexpr int kSyncField = 28;
    const auto start = Clock::now();
    std::this_thread::sleep_for(dro::durations().queuePause);
    router.bare.write(kMarkField, 0, "CDIL payload enqueue successfull");
    router.bare.read(kMarkField, 0);
    router.bare.read(kSyncField, 0);
    router.bare.write(kSyncField, 0, "");
    post.send(body);
    const auto received = arrived(router.cloud, 1, kEventPath).front().at;
    router.cloud.forget();
    return received - start;
}

void measure_event_sizes(Report& report) {
    constexpr int kRounds = 30;
    constexpr std::size_t kKiB = 1024;
    Router router;
    const LocalAgent agent(router);
    const Dispatcher dispatcher;
    const BarePost post = router.bare_post(kEventPath);
    // The last leaves room for the quotation marks and the NUL in a slot of 2 MiB.
    for (const std::size_t size : {kKiB, 256 * kKiB, 512 * kKiB, 1023 * kKiB, 1536 * kKiB, 2047 * kKiB}) {
        const std::string payload = '"' + std::string(size - 2, 'x') + '"';
        std::string body;
        report.compare("event of " + size_name(size),
                       in_turn(
                           kRounds, [&] { return push_ours(router, payload, body); },
                           [&] { return push_bare(router, post, body); }),
                       Work{"event", static_cast<double>(size)});
    }
}

}  // namespace

void measure_sizes(Report& report) {
    measure_message_sizes(report);
    measure_event_sizes(report);
}

}  // namespace bench

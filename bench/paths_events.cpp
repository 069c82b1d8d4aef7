// Device events: from the notifier's write to the cloud, on an idle agent.

#include <thread>

#include "dro_durations.h"
#include "paths.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kPath = "syncCD/";
constexpr int kRounds = 300;

// One kind of event: its notifier, and the number of store reads on its path.
struct Kind {
    const char* name;
    const char* table;
    int reads;  // store reads from the notice to the request, the index, the record and the claim
};
constexpr Kind kNewDevice{"NDN", "DALHNotifyNDN", 20};
constexpr Kind kTagged{"DTN", "DALHNotifyDTN", 15};

// The floor: the notifier's write, the reads, the required pause, the progress mark, the request.
void send_bare(Router& router, const Kind& kind, const BarePost& post, const std::string& body) {
    constexpr int kIndex = 23;
    constexpr int kMarkField = 24;
    router.bare.write(kIndex, 0, "1");
    for (int read = 0; read < kind.reads; ++read) {
        router.bare.read(read, 0);
    }
    std::this_thread::sleep_for(dro::durations().queuePause);
    router.bare.write(kMarkField, 0, "CDIL payload enqueue successfull");
    post.send(body);
}

// The agent is idle again once the request is answered and a tagged device's index is reset.
void settle() {
    std::this_thread::sleep_for(2 * kSettle);
}

void measure_kind(Report& report, Router& router, const Kind& kind) {
    const BarePost post = router.bare_post(kPath);
    Pair whole;
    for (int round = -3; round < kRounds; ++round) {  // the first three warm up
        const auto written = Clock::now();
        write_uint(router, kind.table, "Index", static_cast<std::uint32_t>(round + 3) % kDevices);
        const dro_test::Request event = arrived(router.cloud, 1, kPath).front();
        router.cloud.forget();
        settle();

        const auto start = Clock::now();
        send_bare(router, kind, post, event.body);
        const auto received = arrived(router.cloud, 1, kPath).front().at;
        router.cloud.forget();
        settle();
        if (round >= 0) {
            whole.ours.add(event.at - written);
            whole.floor.add(received - start);
        }
    }
    report.compare(std::string(kind.name) + " to the cloud", whole);
}

}  // namespace

void measure_events(Report& report) {
    Router router;
    const RunningAgent agent(router);
    measure_kind(report, router, kNewDevice);
    measure_kind(report, router, kTagged);
}

}  // namespace bench

// Device lists: one requested by the cloud, and ten at once.

#include <thread>

#include "dro_durations.h"
#include "paths.h"
#include "process_stats.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kAnswerPath = "transactionAck/";
constexpr const char* kUnaskedPath = "syncCD/";

// Required store accesses: the command's writes, the progress marks, and the reads per list and per device (18 members,
// and twice the transaction id, which selects the keys).
constexpr int kWrites = 15;
constexpr int kReadsOnce = 14;
constexpr int kTransactionReads = 2;

using ReadRecord = void (*)(BareStore& bare, int row);

void gather_bare(Router& router, int devices, ReadRecord read_record) {
    constexpr int kField = 25;
    for (int write = 0; write < kWrites; ++write) {
        router.bare.write(kField, 0, "CDIL payload creation start");
    }
    for (int read = 0; read < kReadsOnce; ++read) {
        router.bare.read(kField, 0);
    }
    for (int row = 0; row < devices; ++row) {
        read_record(router.bare, row);
        for (int read = 0; read < kTransactionReads; ++read) {
            router.bare.read(kField, 0);
        }
    }
}

struct ListTimes {
    Pair whole;
    Samples rowsAtOnce;  // the floor that reads a table's row with one statement
};

// Requests and receives one list. The device service's time is not the agent's and is excluded.
dro_test::Request fetch(Router& router, Notices& notices, int number, ListTimes& times, bool counts) {
    notices.forget();
    const auto asked =
        deliver(command("list-" + std::to_string(number), "FETCH_CD", R"({"fetchFor":"app","status":0})"));
    dro_test::Request list = arrived(router.cloud, 1, kAnswerPath).front();
    const auto triggered = notices.wait_for("DALHConfig.ProcessID");
    const auto handedOver = notices.wait_for("DALHNotifyCDIL.CDILstatus");
    if (counts) {
        times.whole.ours.add(list.at - asked - (handedOver - triggered));
    }
    // The list's watch resets its field last: first "success", then "none".
    notices.wait_for("RADebugLog.cdilDebugStatus", 2);
    router.cloud.forget();
    std::this_thread::sleep_for(kSettle);
    return list;
}

Clock::duration fetch_bare(Router& router, const BarePost& post, int devices, const std::string& body,
                           ReadRecord read_record) {
    const auto start = Clock::now();
    gather_bare(router, devices, read_record);
    std::this_thread::sleep_for(dro::durations().queuePause);
    post.send(body);
    const auto received = arrived(router.cloud, 1, kAnswerPath).front().at;
    router.cloud.forget();
    std::this_thread::sleep_for(kSettle);
    return received - start;
}

void measure_list(Report& report, int devices) {
    constexpr int kRounds = 40;
    Router router;
    const RunningAgent agent(router);
    const DeviceService service(router, devices);
    Notices notices({"DALHConfig", "DALHNotifyCDIL", "RADebugLog"});
    const BarePost post = router.bare_post(kAnswerPath);
    ListTimes times;
    long before = 0;
    for (int round = -3; round < kRounds; ++round) {  // the first three warm up
        if (round == 0) {
            before = memory_of(agent.pid()).rss;
            reset_peak(agent.pid());
        }
        const std::string body = fetch(router, notices, round, times, round >= 0).body;
        const auto least = fetch_bare(router, post, devices, body, read_record_bare);
        const auto rowsAtOnce = fetch_bare(router, post, devices, body, read_record_whole);
        if (round >= 0) {
            times.whole.floor.add(least);
            times.rowsAtOnce.add(rowsAtOnce);
        }
    }
    const std::string name = "list of " + std::to_string(devices);
    const Work work{"list", static_cast<double>(devices)};
    report.compare(name, times.whole, work);
    report.compare(name + ", rows at once", {times.whole.ours, times.rowsAtOnce});
    report.fact(name + ", memory while it is built", "KiB", static_cast<double>(peak_of(agent.pid()) - before), {},
                work);
}

}  // namespace

void measure_lists(Report& report) {
    for (const int devices : {1, 32, 64, 128, kDevices}) {
        measure_list(report, devices);
    }
}

void measure_lists_at_once(Report& report) {
    constexpr int kLists = 10;
    constexpr int kRounds = 20;
    Router router;
    const RunningAgent agent(router);
    const DeviceService service(router, kDevices);
    const BarePost post = router.bare_post(kUnaskedPath);
    int threads = 0;
    std::string body;
    const auto ours = [&] {
        const auto start = Clock::now();
        service.hand_over(kLists);
        const auto lists = arrived(router.cloud, kLists, kUnaskedPath);
        const auto duration = lists.back().at - start;
        body = lists.back().body;
        router.cloud.forget();
        std::this_thread::sleep_for(kSettle);
        if (threads == 0) {
            threads = activity_of(agent.pid()).threads;
        }
        return duration;
    };
    const auto floor = [&] {
        const auto start = Clock::now();
        for (int list = 0; list < kLists; ++list) {
            gather_bare(router, kDevices, read_record_bare);
            post.send(body);
        }
        const auto duration = arrived(router.cloud, kLists, kUnaskedPath).back().at - start;
        router.cloud.forget();
        return duration;
    };
    report.compare("ten lists of 256 at once", in_turn(kRounds, ours, floor));
    report.fact("ten lists of 256 at once, more threads", "threads", activity_of(agent.pid()).threads - threads);
}

}  // namespace bench

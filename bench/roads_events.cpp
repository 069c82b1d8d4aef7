// Device events: from the notifier's write to the cloud, on an idle agent, with what each part of the way takes.

#include <thread>

#include "dro_durations.h"
#include "dro_get_set_config_checkpoint.h"
#include "dro_json.h"
#include "dro_stop.h"
#include "dro_utils_post.h"
#include "dro_utils_record.h"
#include "local_agent.h"
#include "roads.h"

namespace bench {
namespace {

constexpr const char* kPath = "syncCD/";
constexpr const char* kMark = "RADebugLog.dbgArg1";
constexpr int kRounds = 300;

// What one kind of event reads on its way, and where its notifier is.
struct Kind {
    const char* name;
    const char* table;
    int reads;  // store reads from the notice to the request, the index, the record and the claim
};
constexpr Kind kNewDevice{"NDN", "DALHNotifyNDN", 20};
constexpr Kind kTagged{"DTN", "DALHNotifyDTN", 15};

// The same work, bare: the write that notifies, the reads, the required pause, the mark, the request.
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

// The agent is idle again once the request was answered; a tag's index goes back then.
void settle() {
    std::this_thread::sleep_for(2 * kSettle);
}

void measure_kind(Report& report, Router& router, const Kind& kind) {
    Notices notices({"RADebugLog"});
    const BarePost post = router.bare_post(kPath);
    Pair whole;
    Samples queued;
    Samples pushed;
    for (int round = -3; round < kRounds; ++round) {  // the first three warm up
        notices.forget();
        const auto written = Clock::now();
        write_uint(router, kind.table, "Index", static_cast<std::uint32_t>(round + 3) % kDevices);
        const auto marked = notices.wait_for(kMark);
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
            queued.add(marked - written);
            pushed.add(event.at - marked);
        }
    }
    const std::string name = kind.name;
    report.compare(name + " to the cloud", whole);
    report.part(name + ", written to queued", queued);
    report.part(name + ", queued to received", pushed);
}

// What the pieces of the way take, each alone.
void measure_pieces(Report& report, Router& router) {
    const LocalAgent agent(router);
    Notices notices({"DALHprofileMAC"});
    const std::string url = router.cloud.base_url() + kPath;
    Samples notice;
    Samples record;
    Samples pause;
    Samples mark;
    Samples request;
    std::string body;
    for (int round = 0; round < kRounds; ++round) {
        notices.forget();
        const auto written = Clock::now();
        write_uint(router, "DALHprofileMAC", "MACcount", 1);
        notice.add(notices.wait_for("DALHprofileMAC.MACcount") - written);
        record.add(time_of([&] {
            const dro::Json device(cJSON_CreateObject());
            dro::getConnectedDeviceData(round % kDevices, device.get(), dro::kRecordNewDevice);
            const dro::JsonText text(cJSON_PrintUnformatted(device.get()));
            body = text.get();
        }));
        pause.add(time_of([] { dro::pause_for(dro::durations().queuePause); }));
        mark.add(time_of([] { dro::write_checkpoint(dro::kEnqueued); }));
        const auto sent = Clock::now();
        std::optional<std::string> answer;
        dro::curl_post(url.c_str(), body.c_str(), answer);
        request.add(arrived(router.cloud, 1, kPath).front().at - sent);
        router.cloud.forget();
        std::this_thread::sleep_for(kSettle);
    }
    report.part("piece: write to notice", notice);
    report.part("piece: record, rendered", record);
    report.part("piece: required queue pause of 500 us", pause);
    report.part("piece: queue mark", mark);
    report.part("piece: request until received", request);
}

}  // namespace

void measure_events(Report& report) {
    Router router;
    {
        const RunningAgent agent(router);
        measure_kind(report, router, kNewDevice);
        measure_kind(report, router, kTagged);
    }
    measure_pieces(report, router);
}

}  // namespace bench

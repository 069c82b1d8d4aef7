// The dispatcher: events leave in their order, each by its own way, and stop when told to.
#include "dro_dispatcher.h"

#include <filesystem>
#include <fstream>
#include <set>

#include "dro_stop.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr const char* kHandled = "Free'd memory\n";
constexpr const char* kDropped = "device not claimed yet! Dropping PN event \n";

class Dispatcher : public PipelineTest {
 protected:
    void start() {
        store.set_all({{"DroStatus.dispatcherSupport", "true"}, {"DroCfg.claimState", "true"}});
        dro::InitQueue();
        ASSERT_EQ(dro::init_dispatcher(), 0);
        ASSERT_TRUE(log.wait_for("gets the claimState\n"));
    }

    // Queues an event, waits until it was handled, and hands back what was sent.
    std::vector<Request> dispatched(const char* tag) {
        cloud.forget();
        log.forget();
        EXPECT_EQ(dro::enqueue_buf({tag, "{}"}), 1);
        EXPECT_TRUE(log.wait_for(kHandled)) << tag;
        EXPECT_TRUE(dro::isQueueEmpty()) << tag;
        return cloud.requests();
    }
};

TEST_F(Dispatcher, SendsEachEventByItsOwnWay) {
    start();
    // `sent` is path and type of the request, or empty.
    const auto expect = [&](bool claimed, const char* tag, const std::string& sent, const char* logged, int level) {
        store.set("DroCfg.claimState", claimed ? "true" : "false");
        std::string all;
        for (const Request& request : dispatched(tag)) {
            all += request.path + json_value(request.body, "type");
        }
        EXPECT_EQ(all, sent) << tag << claimed;
        EXPECT_TRUE(log.has(std::string("Event is:") + tag + "\n", 2)) << tag;
        EXPECT_TRUE(log.has(logged, level)) << tag << claimed;
    };
    expect(true, "NDNEV", "/syncCD/NDN", "NDN Event Matched!\n", 2);
    expect(true, "DTN", "/syncCD/DTN", "DTN Event Matched!\n", 1);
    expect(true, "DTNxx", "/syncCD/DTN", "eventTypeNo is 1\n", 1);
    expect(true, "CDIL", "/syncCD/CDIL", "CDIL Sync successfull\n", 1);
    expect(true, "CDILx", "/syncCD/CDIL", "eventTypeNo is 2\n", 1);
    expect(true, "B", "/pushStData/M", "BST Event Matched!!\n", 2);
    expect(true, "Bxyz", "/pushStData/M", "payload in dispatcher is {}\n", 1);
    expect(true, "UPDAT", "/syncCD/UPDATE_CD", "UPDATE_CD Sync successfull\n", 1);
    expect(false, "NDNEV", "", "device not claimed yet!      Dropping PN event \n", 4);
    expect(false, "DTN", "", kDropped, 4);
    expect(false, "CDIL", "/syncCD/CDIL", "CDIL Event Matched!\n", 1);
    expect(false, "B", "", kDropped, 4);
    expect(false, "UPDAT", "/syncCD/UPDATE_CD", "UPDATE_CD Event Matched!\n", 2);
}

TEST_F(Dispatcher, KeepsTheOrderBehindAStalledCloud) {
    start();
    cloud.script("syncCD/", {stall()});
    for (const char* payload : {"1", "2", "3", "4", "5"}) {
        ASSERT_EQ(dro::enqueue_buf({*payload == '3' ? "DTN" : "NDNEV", payload}), 1);
    }
    EXPECT_EQ(cloud.wait_for(1).size(), 1U);
    cloud.release();
    std::string order;
    for (const Request& request : cloud.wait_for(5)) {
        order += json_value(request.body, "cd");
    }
    EXPECT_EQ(order, "12345");
}

TEST_F(Dispatcher, LeavesMarksOfWhatBecameOfAnEvent) {
    start();
    const auto expect = [&](const char* tag, const Answer& answer, const Texts& marks, const char* logged, int level) {
        cloud.answer_all(answer);
        const StoreSpy spy;
        const auto requests = dispatched(tag);
        Texts writes;
        for (const char* mark : {"DALHNotifyDTN.", "RADebugLog.cdilDebugStatus", "BSTCfg."}) {
            const auto more = spy.writes(mark);
            writes.insert(writes.end(), more.begin(), more.end());
        }
        EXPECT_EQ(writes, marks) << tag << answer.body;
        EXPECT_TRUE(log.has(logged, level)) << tag << answer.body;
        return requests.empty() ? "" : json_value(requests[0].body, "type");
    };
    const Texts noDevice{"DALHNotifyDTN.Index=257"};
    expect("DTN", accepted(), noDevice, "G-API call Successfull\n\n", 1);
    expect("DTN", refused(), noDevice, "DTN Sync not successfull\n", 4);
    expect("DTN", hang_up(), noDevice, "No response from DRO Cloud\n", 4);
    expect("UPDAT", refused(), {}, "UPDATE_CD Sync not successfull\n", 4);
    expect("UPDAT", hang_up(), {}, "UPDATE_CD Sync successfull\n", 1);

    const Texts listSent{"RADebugLog.cdilDebugStatus=success"};
    expect("CDIL", hang_up(), listSent, "CDIL Sync successfull\n", 1);
    store.set("DroStatus.cdilTransUuid", "t-1");
    expect("CDIL", refused(), listSent, "CDIL Sync successfull\n", 1);
    expect("CDIL", hang_up(), {}, "CDIL Sync not successfull\n", 4);

    const auto expect_kind = [&](const char* requestType, const Answer& answer, const char* kind) {
        store.set("BSTResults.bstRequestType", requestType);
        EXPECT_EQ(expect("B", answer, {"BSTCfg.BSTStatus=Unknown"}, "Setting bststats as unknown\n", 1), kind);
    };
    expect_kind("Scheduled", accepted(), "B");
    expect_kind("ScheduledNow", refused(), "B");
    expect_kind("scheduled", hang_up(), "M");
    expect_kind("", accepted(), "M");
}

TEST_F(Dispatcher, LooksAtAnUnknownEventAgainAndAgainWhileLaterOnesWait) {
    start();
    const auto begin = std::chrono::steady_clock::now();
    dro::enqueue_buf({"NDN", "{}"});  // two letters short
    dro::enqueue_buf({"NDNEV", "{}"});
    ASSERT_TRUE(log.wait_for("No Case Matched!\n", 4));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 3 * short_durations().unknownEvent);
    EXPECT_TRUE(log.has("eventTypeNo is -1\n"));
    EXPECT_TRUE(log.has("Event on ArrQueue NDNEV\n")) << "the newest event's tag";
    EXPECT_TRUE(cloud.requests().empty());
    dro::dequeue();
    EXPECT_EQ(cloud.wait_for(1).size(), 1U) << "the one behind it";
}

std::set<std::string> threads() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        names.insert(entry.path());
    }
    return names;
}

// How often a thread has waited, as the kernel says it.
std::string voluntary_switches(const std::string& thread) {
    std::ifstream file(thread + "/status");
    std::string line;
    while (std::getline(file, line) && !line.starts_with("voluntary_ctxt_switches:")) {
    }
    return line;
}

TEST_F(Dispatcher, SleepsWhileThereIsNothingToDo) {
    const auto before = threads();
    start();
    std::string dispatcher;
    for (const std::string& thread : threads()) {
        dispatcher = before.contains(thread) ? dispatcher : thread;
    }
    // Asleep once its count stands still; then it must stay so.
    std::string switches;
    const auto moved = [&] { return std::exchange(switches, voluntary_switches(dispatcher)) != switches; };
    ASSERT_TRUE(eventually([&] { return !eventually(moved, std::chrono::milliseconds(20)); }));
    EXPECT_FALSE(eventually(moved, std::chrono::milliseconds(300)));
    ASSERT_FALSE(switches.empty());
    dispatched("NDNEV");
    EXPECT_TRUE(moved()) << "it was the dispatcher that was looked at";
}

TEST_F(Dispatcher, EndsAtOnceInTheMiddleOfAnything) {
    set_durations([](dro::Durations& durations) {
        durations.retryPause = std::chrono::minutes(1);
        durations.unknownEvent = std::chrono::minutes(1);
    });
    const auto expect = [&](const char* what, const char* tag, const Answer& answer, const char* reached) {
        log.forget();
        cloud.forget();
        dro::clear_stop();
        start();
        cloud.script("syncCD/", {answer});
        if (*tag != '\0') {
            dro::enqueue_buf({tag, "{}"});
        }
        ASSERT_TRUE(answer.kind == Answer::Kind::stall ? cloud.wait_for(1).size() == 1 : log.wait_for(reached));
        const auto begin = std::chrono::steady_clock::now();
        dro::cancel_dispatcher_thread();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200)) << what;
        EXPECT_TRUE(log.in_order({"Cancel Dispatcher Thread!\n", "Cancel Dispatcher Thread destroy the mutex\n"}));
        cloud.release();
    };
    expect("a transfer", "NDNEV", stall(), "");
    expect("a pause", "NDNEV", hang_up(), "No response from DRO Cloud\n");
    expect("an unknown event", "?", accepted(), "No Case Matched!\n");
    expect("nothing", "", accepted(), "Initing DROAgent Dispatcher!\n");
}

TEST_F(Dispatcher, IsNotThereWithoutTheStoresSupport) {
    EXPECT_EQ(dro::init_dispatcher(), 0);
    EXPECT_TRUE(log.has(
        "Dispatcher is Not support of the device! Will enable Dispatcher if Dispatcher support is enabled!\n", 2));
    fill_queue();
    EXPECT_TRUE(dro::isQueueFull());
    EXPECT_FALSE(log.has("Initing DROAgent Dispatcher!\n"));
    EXPECT_TRUE(cloud.requests().empty());
    dro::cancel_dispatcher_thread();
    EXPECT_TRUE(
        log.has("Dispatcher is Not support of the device! No Need to perform Dispatcher Thread cancelation!!\n", 2));
}

}  // namespace
}  // namespace dro_test

// The dispatcher: events leave in their order, each by its own way, and stop when told to.
#include <dirent.h>

#include <fstream>
#include <memory>
#include <set>

#include "dro_dispatcher.h"
#include "dro_stop.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr const char* kHandled = "Free'd memory\n";
constexpr const char* kDropped = "device not claimed yet! Dropping PN event \n";

class Dispatcher : public PipelineTest {
 protected:
    void start(bool claimed) {
        start_pipeline({{"DroStatus.dispatcherSupport", "true"}, {"DroCfg.claimState", claimed ? "true" : "false"}});
    }

    static void use(const std::function<void(dro::Durations&)>& change) {
        dro::Durations durations = short_durations();
        change(durations);
        dro::set_durations(durations);
    }
};

TEST_F(Dispatcher, SendsEachEventByItsOwnWay) {
    struct Case {
        bool claimed;
        const char* tag;
        const char* path;  // "": not sent
        const char* type;
        const char* logged;
        int level;
    };
    const std::vector<Case> cases{
        {true, "NDNEV", "/syncCD/", "NDN", "NDN Event Matched!\n", 2},
        {true, "DTN", "/syncCD/", "DTN", "DTN Event Matched!\n", 1},
        {true, "DTNxx", "/syncCD/", "DTN", "eventTypeNo is 1\n", 1},
        {true, "CDIL", "/syncCD/", "CDIL", "CDIL Sync successfull\n", 1},
        {true, "CDILx", "/syncCD/", "CDIL", "eventTypeNo is 2\n", 1},
        {true, "B", "/pushStData/", "M", "BST Event Matched!!\n", 2},
        {true, "Bxyz", "/pushStData/", "M", "payload in dispatcher is {}\n", 1},
        {true, "UPDAT", "/syncCD/", "UPDATE_CD", "UPDATE_CD Sync successfull\n", 1},
        {false, "NDNEV", "", "", "device not claimed yet!      Dropping PN event \n", 4},
        {false, "DTN", "", "", kDropped, 4},
        {false, "CDIL", "/syncCD/", "CDIL", "CDIL Event Matched!\n", 1},
        {false, "B", "", "", kDropped, 4},
        {false, "UPDAT", "/syncCD/", "UPDATE_CD", "UPDATE_CD Event Matched!\n", 2},
    };
    start(true);
    for (const Case& c : cases) {
        log.forget();
        cloud.forget();
        store.set("DroCfg.claimState", c.claimed ? "true" : "false");
        ASSERT_EQ(dro::enqueue_buf({c.tag, "{}"}), 1);
        ASSERT_TRUE(log.wait_for(kHandled)) << c.tag;
        EXPECT_TRUE(dro::isQueueEmpty()) << c.tag;
        EXPECT_TRUE(log.has(std::string("Event is:") + c.tag + "\n", 2)) << c.tag;
        EXPECT_TRUE(log.has(c.logged, c.level)) << c.tag << " " << c.claimed;
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), *c.path != '\0' ? 1U : 0U) << c.tag << " " << c.claimed;
        if (!requests.empty()) {
            EXPECT_EQ(requests[0].path, c.path);
            EXPECT_EQ(json_value(requests[0].body, "type"), c.type);
        }
    }
}

TEST_F(Dispatcher, KeepsTheOrderBehindAStalledCloud) {
    start(true);
    cloud.script("syncCD/", {stall()});
    for (const char* payload : {"1", "2", "3", "4", "5"}) {
        ASSERT_EQ(dro::enqueue_buf({*payload == '3' ? "DTN" : "NDNEV", payload}), 1);
    }
    EXPECT_EQ(cloud.wait_for(1).size(), 1U);
    cloud.release();
    const auto requests = cloud.wait_for(5);
    ASSERT_EQ(requests.size(), 5U);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(json_value(requests[static_cast<std::size_t>(i)].body, "cd"), std::to_string(i + 1));
    }
}

TEST_F(Dispatcher, LeavesMarksOfWhatBecameOfAnEvent) {
    struct Case {
        const char* tag;
        const char* path;
        Answer answer;
        const char* transaction;
        const char* requestType;
        std::vector<std::string> writes;  // to DALHNotifyDTN, RADebugLog.cdilDebugStatus or BSTCfg
        const char* sentType;
        const char* logged;
        int level;
    };
    const std::vector<std::string> noDevice{"DALHNotifyDTN.Index=257"};
    const std::vector<std::string> listSent{"RADebugLog.cdilDebugStatus=success"};
    const std::vector<std::string> speedTestSent{"BSTCfg.BSTStatus=Unknown"};
    constexpr const char* kReset = "Setting bststats as unknown\n";
    const std::vector<Case> cases{
        {"DTN", "syncCD/", accepted(), "", "", noDevice, "DTN", "G-API call Successfull\n\n", 1},
        {"DTN", "syncCD/", refused(), "", "", noDevice, "DTN", "DTN Sync not successfull\n", 4},
        {"DTN", "syncCD/", hang_up(), "", "", noDevice, "DTN", "No response from DRO Cloud\n", 4},
        {"CDIL", "syncCD/", hang_up(), "", "", listSent, "CDIL", "CDIL Sync successfull\n", 1},
        {"CDIL", "transactionAck/", refused(), "t-1", "", listSent, "", "CDIL Sync successfull\n", 1},
        {"CDIL", "transactionAck/", hang_up(), "t-1", "", {}, "", "CDIL Sync not successfull\n", 4},
        {"B", "pushStData/", accepted(), "", "Scheduled", speedTestSent, "B", kReset, 1},
        {"B", "pushStData/", refused(), "", "ScheduledNow", speedTestSent, "B", kReset, 1},
        {"B", "pushStData/", hang_up(), "", "scheduled", speedTestSent, "M", kReset, 1},
        {"B", "pushStData/", accepted(), "", "", speedTestSent, "M", kReset, 1},
        {"UPDAT", "syncCD/", refused(), "", "", {}, "UPDATE_CD", "UPDATE_CD Sync not successfull\n", 4},
        {"UPDAT", "syncCD/", hang_up(), "", "", {}, "UPDATE_CD", "UPDATE_CD Sync successfull\n", 1},
    };
    start(true);
    for (const Case& c : cases) {
        const std::string shown = std::string(c.tag) + " " + c.answer.body + " " + c.requestType;
        log.forget();
        cloud.forget();
        cloud.answer_all(c.answer);
        store.set_all({{"DroStatus.cdilTransUuid", c.transaction}, {"BSTResults.bstRequestType", c.requestType}});
        const StoreSpy spy;
        ASSERT_EQ(dro::enqueue_buf({c.tag, "{}"}), 1);
        ASSERT_TRUE(log.wait_for(kHandled)) << shown;
        std::vector<std::string> writes = spy.writes("DALHNotifyDTN.");
        for (const char* start : {"RADebugLog.cdil", "BSTCfg."}) {
            const auto more = spy.writes(start);
            writes.insert(writes.end(), more.begin(), more.end());
        }
        EXPECT_EQ(writes, c.writes) << shown;
        EXPECT_TRUE(log.has(c.logged, c.level)) << shown;
        const auto requests = cloud.requests(c.path);
        ASSERT_EQ(requests.size(), c.answer.kind == Answer::Kind::hangUp ? 3U : 1U) << shown;
        EXPECT_EQ(json_value(requests[0].body, "type"), c.sentType) << shown;
    }
}

TEST_F(Dispatcher, LooksAtAnUnknownEventAgainAndAgainWhileLaterOnesWait) {
    start(true);
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

// What the kernel knows of the process's threads: how often each has waited.
std::string voluntary_switches(const std::string& thread) {
    std::ifstream file("/proc/self/task/" + thread + "/status");
    std::string line;
    while (std::getline(file, line)) {
        if (line.starts_with("voluntary_ctxt_switches:")) {
            return line;
        }
    }
    return "GONE";
}

std::set<std::string> threads() {
    std::set<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/task"), closedir);
    while (const dirent* entry = readdir(folder.get())) {
        names.insert(entry->d_name);
    }
    return names;
}

TEST_F(Dispatcher, SleepsWhileThereIsNothingToDo) {
    store.set_all({{"DroStatus.dispatcherSupport", "true"}, {"DroCfg.claimState", "true"}});
    dro::InitQueue();
    const auto before = threads();
    dro::init_dispatcher();
    dro::enqueue_buf({"NDNEV", "{}"});
    ASSERT_TRUE(log.wait_for(kHandled));
    std::string dispatcher;
    for (const std::string& thread : threads()) {
        dispatcher = before.contains(thread) ? dispatcher : thread;
    }
    // It has gone to sleep once the count stands still; then it must stay so.
    std::string switches;
    const auto moved = [&] { return std::exchange(switches, voluntary_switches(dispatcher)) != switches; };
    ASSERT_TRUE(eventually([&] { return !eventually(moved, std::chrono::milliseconds(20)); }));
    EXPECT_FALSE(eventually(moved, std::chrono::milliseconds(300))) << switches;
    ASSERT_NE(switches, "GONE");
}

TEST_F(Dispatcher, EndsAtOnceInTheMiddleOfAnything) {
    struct Case {
        const char* what;
        Answer answer;
        const char* seen;  // logged when it has got there
    };
    use([](dro::Durations& durations) {
        durations.retryPause = std::chrono::minutes(1);
        durations.unknownEvent = std::chrono::minutes(1);
    });
    store.set_all({{"DroStatus.dispatcherSupport", "true"}, {"DroCfg.claimState", "true"}});
    for (const char* what : {"a transfer", "a pause", "an unknown event", "nothing"}) {
        const std::string scene(what);
        log.forget();
        cloud.forget();
        dro::clear_stop();
        dro::InitQueue();
        ASSERT_EQ(dro::init_dispatcher(), 0);
        ASSERT_TRUE(log.wait_for("gets the claimState\n"));
        if (scene != "nothing") {
            cloud.script("syncCD/", {scene == "a transfer" ? stall() : hang_up()});
            dro::enqueue_buf({scene == "an unknown event" ? "?" : "NDNEV", "{}"});
            ASSERT_TRUE(scene == "a transfer"
                            ? cloud.wait_for(1).size() == 1
                            : log.wait_for(scene == "a pause" ? "No response from DRO Cloud\n" : "No Case Matched!\n"));
        }
        const auto begin = std::chrono::steady_clock::now();
        dro::cancel_dispatcher_thread();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200)) << scene;
        EXPECT_TRUE(log.in_order({"Cancel Dispatcher Thread!\n", "Cancel Dispatcher Thread destroy the mutex\n"}));
        cloud.release();
    }
}

TEST_F(Dispatcher, IsNotThereWithoutTheStoresSupport) {
    EXPECT_EQ(dro::init_dispatcher(), 0);
    EXPECT_TRUE(log.has(
        "Dispatcher is Not support of the device! Will enable Dispatcher if Dispatcher support is enabled!\n", 2));
    use([](dro::Durations& durations) { durations.queuePause = std::chrono::microseconds(0); });
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

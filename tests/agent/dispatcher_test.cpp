// The event queue - 256 slots, not a ring, with small events kept cheap - and its dispatcher: events are sent in order,
// each type by its own path, until the dispatcher is stopped.
#include "dro_dispatcher.h"

#include <unistd.h>

#include <future>

#include "agent_probe.h"
#include "dro_cdil.h"
#include "dro_dtn.h"
#include "dro_stop.h"
#include "pipeline.h"

namespace dro_test {
namespace {

using Queue = AgentTest;

TEST_F(Queue, ReturnsEventsInOrderTruncatedToTheirSizes) {
    EXPECT_TRUE(dro::isQueueEmpty());
    EXPECT_EQ(dro::dequeue(), 0);
    for (const char* payload : {"1", "2", "3"}) {
        EXPECT_EQ(dro::enqueue_buf({"NDNEV", payload}), 1);
    }
    EXPECT_EQ(dro::enqueue_buf({"B", std::nullopt}), 1);
    EXPECT_EQ(dro::wait_for_event()->newestType, "B");
    for (const char* payload : {"1", "2", "3", ""}) {
        EXPECT_EQ(take_payload(), payload);
    }
    EXPECT_TRUE(dro::isQueueEmpty());
    EXPECT_EQ(dro::dequeue(), 0);
    EXPECT_TRUE(log.has("Dequeue Queue Data at index : 2, at Queue position = 1\n"));
    EXPECT_EQ(log.count_starting("Dequeue Queue Data at index : "), 3U) << "no line for the last event";
    constexpr std::size_t kMost = std::size_t{2} * 1024 * 1024 - 1;
    EXPECT_EQ(dro::enqueue_buf({"UPDATE_CD", std::string(kMost + 10, 'x')}), 1);
    EXPECT_EQ(dro::wait_for_event()->type, "UPDAT");
    EXPECT_TRUE(take_payload() == std::string(kMost, 'x'));
}

TEST_F(Queue, IsFullAfter256EventsUntilItIsEmpty) {
    for (int i = 0; i < 256; ++i) {
        EXPECT_FALSE(dro::isQueueFull());
        ASSERT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 1) << i;
    }
    EXPECT_TRUE(dro::isQueueFull());
    EXPECT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 0);
    for (int i = 0; i < 255; ++i) {
        ASSERT_EQ(dro::dequeue(), 1) << i;
    }
    EXPECT_TRUE(dro::isQueueFull()) << "the queue is not a ring";
    EXPECT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 0);
    EXPECT_EQ(dro::dequeue(), 1);
    EXPECT_EQ(dro::enqueue_buf({"DTN", "{}"}), 1);
}

TEST_F(Queue, ReturnsAnEventOnlyAfterItsMarkIsWritten) {
    StoreSpy spy;
    std::future<void> consumed;
    spy.before_write("RADebugLog.dbgArg1", [&] {
        consumed = std::async(std::launch::async, [] { dro::wait_for_event(); });
        EXPECT_EQ(consumed.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    });
    EXPECT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 1);
    consumed.get();
    EXPECT_EQ(spy.writes(), Texts{"RADebugLog.dbgArg1=CDIL payload enqueue successfull"});
    EXPECT_TRUE(log.in_order({"In func enqueue_buf\n", "After memset\n", "Returning from enqueue_buf\n"}));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // sanitizers' own memory would be counted
long resident_bytes() {
    const std::string pages = file_text("/proc/self/statm");  // total pages, then resident pages
    return std::stol(pages.substr(pages.find(' '))) * sysconf(_SC_PAGESIZE);
}

TEST_F(Queue, CostsLittleForSmallEvents) {
    dro::enqueue_buf({"NDNEV", "{}"});  // one-time allocations of the first event
    const long before = resident_bytes();
    while (dro::enqueue_buf({"NDNEV", std::string(200, 'x')}) == 1) {
    }
    EXPECT_LT(resident_bytes() - before, 4L * 1024 * 1024);
}
#endif

// ---- The dispatcher ----

class Dispatcher : public AgentTest {
 protected:
    void start() {
        store.set_all({{"DroStatus.dispatcherSupport", "true"}, {"DroCfg.claimState", "true"}});
        dro::init_cdil_dal_sub();
        dro::init_dtn_dal_sub();
        ASSERT_EQ(dro::init_dispatcher(), 0);
        ASSERT_TRUE(log.wait_for("gets the claimState\n"));
    }

    // Queues an event and waits until it has been handled. `sent` is the request's path and type, or empty; `mark` is
    // the progress mark that the dispatcher then writes.
    void expect(const char* tag, const std::string& sent, const Texts& mark, const char* logged, int level) {
        SCOPED_TRACE(sent + logged);
        forget();
        const StoreSpy spy;
        EXPECT_EQ(dro::enqueue_buf({tag, "{}"}), 1);
        EXPECT_TRUE(log.wait_for("Free'd memory\n"));
        EXPECT_TRUE(dro::isQueueEmpty());
        const auto all = cloud.requests();
        EXPECT_EQ(all.empty() ? "" : all.back().path + json_value(all.back().body, "type"), sent);
        Texts marks = spy.writes();
        std::erase_if(marks, [](const std::string& write) {
            return write.starts_with("RADebugLog.dbgArg1=") || write == "DroStatus.cdilsyncAt=";
        });
        EXPECT_EQ(marks, mark);
        EXPECT_TRUE(log.has(std::string("Event is:") + tag + "\n", 2) && log.has(logged, level));
    }
};

constexpr const char* kNoDevice = "DALHNotifyDTN.Index=257";
constexpr const char* kListSent = "RADebugLog.cdilDebugStatus=success";
constexpr const char* kUnknown = "BSTCfg.BSTStatus=Unknown";

TEST_F(Dispatcher, SendsEachTypeToItsEndpoint) {
    start();
    expect("NDNEV", "/syncCD/NDN", {}, "NDN Event Matched!\n", 2);
    expect("DTN", "/syncCD/DTN", {kNoDevice}, "DTN Event Matched!\n", 1);
    expect("DTNxx", "/syncCD/DTN", {kNoDevice}, "eventTypeNo is 1\n", 1);
    expect("CDIL", "/syncCD/CDIL", {kListSent}, "CDIL Sync successfull\n", 1);
    expect("CDILx", "/syncCD/CDIL", {kListSent}, "eventTypeNo is 2\n", 1);
    expect("B", "/pushStData/M", {kUnknown}, "BST Event Matched!!\n", 2);
    expect("Bxyz", "/pushStData/M", {kUnknown}, "payload in dispatcher is {}\n", 1);
    expect("UPDAT", "/syncCD/UPDATE_CD", {}, "UPDATE_CD Sync successfull\n", 1);
    for (const char* scheduled : {"Scheduled", "ScheduledNow"}) {
        store.set("BSTResults.bstRequestType", scheduled);
        expect("B", "/pushStData/B", {kUnknown}, "Setting bststats as unknown\n", 1);
    }
    store.set_all({{"BSTResults.bstRequestType", "scheduled"}, {"DroCfg.claimState", "false"}});
    constexpr const char* kDropped = "device not claimed yet! Dropping PN event \n";
    expect("NDNEV", "", {}, "device not claimed yet!      Dropping PN event \n", 4);
    expect("DTN", "", {}, kDropped, 4);
    expect("CDIL", "/syncCD/CDIL", {kListSent}, "CDIL Event Matched!\n", 1);
    expect("B", "", {}, kDropped, 4);
    expect("UPDAT", "/syncCD/UPDATE_CD", {}, "UPDATE_CD Event Matched!\n", 2);
}

TEST_F(Dispatcher, ContinuesAfterAFailedEventOrRead) {
    start();
    store.set("BSTResults.bstRequestType", "scheduled");
    cloud.answer_all(kRefused);
    expect("DTN", "/syncCD/DTN", {kNoDevice}, "DTN Sync not successfull\n", 4);
    expect("UPDAT", "/syncCD/UPDATE_CD", {}, "UPDATE_CD Sync not successfull\n", 4);
    cloud.answer_all(kHangUp);
    expect("DTN", "/syncCD/DTN", {kNoDevice}, "No response from DRO Cloud\n", 4);
    expect("UPDAT", "/syncCD/UPDATE_CD", {}, "UPDATE_CD Sync successfull\n", 1);
    expect("B", "/pushStData/M", {kUnknown}, "Setting bststats as unknown\n", 1);
    expect("CDIL", "/syncCD/CDIL", {kListSent}, "CDIL Sync successfull\n", 1);
    store.set("DroStatus.cdilTransUuid", "t-1");
    expect("CDIL", "/transactionAck/", {}, "CDIL Sync not successfull\n", 4);
    cloud.answer_all(kRefused);
    expect("CDIL", "/transactionAck/", {kListSent}, "CDIL Sync successfull\n", 1);
    cloud.forget();
    StoreSpy spy;
    spy.fail("DroCfg.claimState", HAB_TIMEOUT);
    dro::enqueue_buf({"NDNEV", "{}"});
    EXPECT_EQ(cloud.wait_for(1).size(), 1U) << "the last known claim state is used";
}

TEST_F(Dispatcher, RetriesAnUnknownEventWhileLaterOnesWait) {
    start();
    const auto begin = std::chrono::steady_clock::now();
    dro::enqueue_buf({"NDN", "{}"});  // two characters short
    dro::enqueue_buf({"NDNEV", "{}"});
    ASSERT_TRUE(log.wait_for("No Case Matched!\n", 4));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 3 * durations.unknownEvent);
    EXPECT_TRUE(log.has("eventTypeNo is -1\n"));
    EXPECT_TRUE(log.has("Event on ArrQueue NDNEV\n")) << "the newest event's tag";
    EXPECT_TRUE(cloud.requests().empty());
    dro::dequeue();
    EXPECT_EQ(cloud.wait_for(1).size(), 1U) << "the next event";
}

TEST_F(Dispatcher, KeepsAnEventWhosePushTheStopInterrupts) {
    start();
    for (const char* tag : {"NDNEV", "DTN", "CDIL", "B", "UPDAT"}) {
        SCOPED_TRACE(tag);
        forget();
        cloud.script("syncCD/", {kStall});
        cloud.script("pushStData/", {kStall});
        dro::enqueue_buf({tag, "{}"});
        EXPECT_EQ(cloud.wait_for(1).size(), 1U);
        const StoreSpy spy;
        dro::request_stop();
        EXPECT_TRUE(log.wait_for("Free'd memory\n"));
        dro::cancel_dispatcher_thread();
        EXPECT_EQ(spy.writes(), Texts{});
        EXPECT_EQ(dro::dequeue(), 1);
        cloud.release();
        clear_stop();
        dro::init_dispatcher();
    }
}

TEST_F(Dispatcher, DoesNotStartWithoutTheStoresSupport) {
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

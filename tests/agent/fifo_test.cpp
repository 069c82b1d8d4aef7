// The event queue: 256 slots that are no ring, small events that cost little, and nothing seen before it is marked.
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "pipeline.h"

namespace dro_test {
namespace {

class Fifo : public PipelineTest {
 protected:
    Fifo() {
        set_durations([](dro::Durations& durations) { durations.queuePause = std::chrono::microseconds(0); });
        dro::InitQueue();
    }
};

TEST_F(Fifo, HandsEventsOverInTheirOrder) {
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
    EXPECT_EQ(log.count_starting("Dequeue Queue Data at index : "), 3U) << "the last one goes without a line";
}

TEST_F(Fifo, IsFullAfter256UntilItHasBeenEmpty) {
    for (int i = 0; i < 256; ++i) {
        EXPECT_FALSE(dro::isQueueFull());
        ASSERT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 1) << i;
    }
    EXPECT_TRUE(dro::isQueueFull());
    EXPECT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 0);
    for (int i = 0; i < 255; ++i) {
        ASSERT_EQ(dro::dequeue(), 1) << i;
    }
    EXPECT_TRUE(dro::isQueueFull()) << "it is no ring";
    EXPECT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 0);
    EXPECT_EQ(dro::dequeue(), 1);
    EXPECT_EQ(dro::enqueue_buf({"DTN", "{}"}), 1);
}

TEST_F(Fifo, KeepsFiveCharactersOfTheTypeAndTwoMebibytesOfThePayload) {
    constexpr std::size_t kMost = std::size_t{2} * 1024 * 1024 - 1;
    EXPECT_EQ(dro::enqueue_buf({"UPDATE_CD", std::string(kMost + 10, 'x')}), 1);
    EXPECT_EQ(dro::wait_for_event()->type, "UPDAT");
    EXPECT_TRUE(take_payload() == std::string(kMost, 'x'));
}

TEST_F(Fifo, ShowsAnEventOnlyOnceItsMarkIsWritten) {
    StoreSpy spy;
    std::atomic<bool> seen{false};
    bool seenBeforeMark = false;
    std::thread consumer;
    spy.before_write("RADebugLog.dbgArg1", [&] {
        consumer = std::thread([&] {
            dro::wait_for_event();
            seen = true;
        });
        seenBeforeMark = eventually([&] { return seen.load(); }, std::chrono::milliseconds(50));
    });
    EXPECT_EQ(dro::enqueue_buf({"NDNEV", "{}"}), 1);
    consumer.join();
    EXPECT_FALSE(seenBeforeMark);
    EXPECT_EQ(spy.writes(), Texts{"RADebugLog.dbgArg1=CDIL payload enqueue successfull"});
    EXPECT_TRUE(log.in_order({"In func enqueue_buf\n", "After memset\n", "Returning from enqueue_buf\n"}));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their own bookkeeping would be counted
long resident_bytes() {
    std::ifstream file("/proc/self/statm");
    long whole = 0;
    long resident = 0;
    file >> whole >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

TEST_F(Fifo, CostsLittleForSmallEvents) {
    dro::enqueue_buf({"NDNEV", "{}"});  // what the first event takes once
    const long before = resident_bytes();
    while (dro::enqueue_buf({"NDNEV", std::string(200, 'x')}) == 1) {
    }
    EXPECT_LT(resident_bytes() - before, 4L * 1024 * 1024);
}
#endif

}  // namespace
}  // namespace dro_test

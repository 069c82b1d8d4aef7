// Change notices: recipients, order, and robustness.
#include <signal.h>
#include <unistd.h>

#include <random>
#include <semaphore>
#include <thread>

#include "rounds.h"
#include "workbench.h"

namespace {

using NoticesTest = SessionTest;
using Seen = std::vector<std::string>;

// Blocks a handler from its first notice until the gate is opened.
class Gate {
 public:
    void pass() {
        entered_.release();
        static_cast<void>(open_.try_acquire_for(kPatience));
        open_.release();
    }
    bool awaitEntered() { return entered_.try_acquire_for(kPatience); }
    void open() { open_.release(); }

 private:
    static constexpr std::chrono::seconds kPatience{10};
    std::counting_semaphore<> entered_{0};
    std::counting_semaphore<> open_{0};
};

TEST_F(NoticesTest, ArriveForEveryWriteInCommitOrderFromAnyProcess) {
    Notices notices(s_, {"DALHNotifyNDN", "DALHNotifyCDUPDATE", "DeviceIdList", "DALHNotifyNDN"});
    EXPECT_EQ(hab_set_uint(s_, "DALHNotifyNDN", 0, "Index", 5), HAB_OK);
    EXPECT_EQ(hab_set_uint(s_, "DALHNotifyNDN", 0, "Index", 5), HAB_OK);  // an unchanged value
    EXPECT_EQ(habctl({"set", "DALHNotifyCDUPDATE.IndexCd", "7"}).status, 0);
    EXPECT_EQ(hab_set_uint(s_, "DALHNotifyDTN", 0, "Index", 5), HAB_OK);            // not subscribed
    EXPECT_EQ(hab_set_uint(s_, "DALHNotifyNDN", 0, "Index2", 5), HAB_NOSUCH_ITEM);  // not a field, not written
    EXPECT_EQ(habctl({"set", "DeviceIdList.DeviceBrand@200", "B"}).status, 0);
    EXPECT_EQ(hab_set_uint(s_, "DALHNotifyNDN", 0, "Index", 6), HAB_OK);
    const Seen expected{"DALHNotifyNDN.Index@0", "DALHNotifyNDN.Index@0", "DALHNotifyCDUPDATE.IndexCD@0",
                        "DeviceIdList.DeviceBrand@200", "DALHNotifyNDN.Index@0"};
    EXPECT_EQ(notices.await(expected.size()), expected);
}

TEST_F(NoticesTest, OfATableStartAtItsSubscription) {
    Gate gate;
    Notices notices(s_, {"General"}, [&] { gate.pass(); });
    hab_set_ascii(s_, "General", 0, "FSN", "1");
    ASSERT_TRUE(gate.awaitEntered());
    hab_set_uint(s_, "DALHNotifyNDN", 0, "Index", 1);  // before the table is subscribed, but not yet read
    ASSERT_EQ(hab_subscribe(s_, "DALHNotifyNDN", 1), HAB_OK);
    hab_set_uint(s_, "DALHNotifyNDN", 0, "Index", 2);
    hab_set_ascii(s_, "General", 0, "FSN", "2");
    gate.open();
    EXPECT_EQ(notices.await(3), (Seen{"General.FSN@0", "DALHNotifyNDN.Index@0", "General.FSN@0"}));
}

// A writer is killed at random moments: its committed values are stored and notified, and nothing needs repair.
TEST_F(NoticesTest, AreNotLostWhenTheWriterIsKilled) {
    const int kills = dro_test::rounds(30, 500);
    Notices notices(s_, {"DALHConfig"});
    std::mt19937 random(std::random_device{}());
    std::uint32_t committed = 0;
    for (int i = 0; i < kills; ++i) {
        Child writer({STORE_CLIENT, std::to_string(committed + 1)});
        std::string last = writer.line();
        std::this_thread::sleep_for(
            std::chrono::microseconds(random() % 4000));  // a random moment, not a wait for an event
        EXPECT_EQ(writer.end(SIGKILL), -SIGKILL);
        for (std::string line = last; !line.empty(); line = writer.line()) {
            last = line;
        }
        const std::uint32_t acknowledged = static_cast<std::uint32_t>(std::stoul(last));
        ASSERT_EQ(hab_get_uint(s_, "DALHConfig", 0, "ProcessID", &committed), HAB_OK);
        EXPECT_GE(committed, acknowledged);
        EXPECT_LE(committed, acknowledged + 1);
        ASSERT_EQ(notices.await(committed).size(), committed);
    }
    EXPECT_EQ(sql("PRAGMA integrity_check"), "ok");
    EXPECT_GT(committed, static_cast<std::uint32_t>(kills));
}

// A session that has missed more changes than the journal holds receives each value once, in order, and then continues.
TEST_F(NoticesTest, OfASessionFarBehindIncludeEveryChangedValue) {
    Gate gate;
    Notices notices(s_, {"DALHNotifyNDN", "BSTResults"}, [&] { gate.pass(); });
    hab_set_uint(s_, "BSTResults", 0, "ServerId", 1);
    ASSERT_TRUE(gate.awaitEntered());
    hab_set_uint(s_, "BSTResults", 0, "Latency", 1);
    std::vector<hab_host_value> many(51'000, {"DALHNotifyNDN", 0, "Index", "3"});
    many.back() = {"DALHNotifyDTN", 0, "Index", "3"};
    ASSERT_EQ(hab_host_set_all(s_, many.data(), many.size(), nullptr), HAB_OK);
    ASSERT_EQ(hab_host_set_all(s_, many.data(), many.size(), nullptr), HAB_OK);
    EXPECT_LE(std::stol(sql("SELECT count(*) FROM hab_journal")), 100'500);
    gate.open();
    ASSERT_EQ(notices.await(3).size(), 3U);
    hab_set_uint(s_, "BSTResults", 0, "Latency", 2);
    EXPECT_EQ(notices.await(4),
              (Seen{"BSTResults.ServerId@0", "BSTResults.Latency@0", "DALHNotifyNDN.Index@0", "BSTResults.Latency@0"}));
}

TEST_F(NoticesTest, StopWithTheirSessionWithoutWaitingForTheHandler) {
    Session session = open();
    Gate gate;
    Notices notices(session.get(), {"General"}, [&] { gate.pass(); });
    hab_set_ascii(s_, "General", 0, "FSN", "1");
    hab_set_ascii(s_, "General", 0, "FSN", "2");
    ASSERT_TRUE(gate.awaitEntered());
    session.reset();  // while the handler blocks

    // A handler that closes its own session receives no further notice, and its handle is recognised as closed.
    hab_session* own = hab_init();
    std::binary_semaphore ended{0};
    int status = HAB_OK;
    Notices last(own, {"General"}, [&] {
        hab_destroy(own);
        status = hab_set_ascii(own, "General", 0, "FSN", "3");
        ended.release();
    });
    hab_set_ascii(s_, "General", 0, "FSN", "4");
    hab_set_ascii(s_, "General", 0, "FSN", "5");
    ASSERT_TRUE(ended.try_acquire_for(std::chrono::seconds(10)));
    EXPECT_EQ(status, HAB_SHUTDOWN);

    // One more round trip through a third session: by then, all notices for the others have been delivered.
    gate.open();
    const Session third = open();
    Notices after(third.get(), {"General"});
    hab_set_ascii(s_, "General", 0, "FSN", "6");
    EXPECT_EQ(after.await(1).size(), 1U);
    EXPECT_EQ(last.await(1).size(), 1U);
    EXPECT_EQ(notices.await(1).size(), 1U);
}

// Another copy of the store takes the file's place, and numbers in the journal are given again. The next change, of
// whatever table, brings a notice for each value that differs, and reads see the restored values at once.
TEST_F(NoticesTest, ContinueFromARestoredCopy) {
    const std::string copy = path_ + ".copy";
    for (const auto& [throughSqlite, changes] :
         Cases<bool, std::size_t>{{true, 0}, {true, 1}, {true, 1200}, {false, 0}, {false, 1}, {false, 1200}}) {
        SCOPED_TRACE((throughSqlite ? "through SQLite, changes: " : "cp, changes: ") + std::to_string(changes));
        ASSERT_EQ(hab_host_create(path_.c_str(), true), HAB_OK);
        const std::array<Session, 2> sessions{open(), open()};
        const auto set = [&](const char* field, const char* text) {
            EXPECT_EQ(hab_host_set_text(sessions[1].get(), "General", 0, field, text), HAB_OK);
        };
        const auto serial = [&](std::size_t session) { return textAt(sessions[session].get(), "General", 0, "FSN"); };
        set("FSN", "old"), set("DeviceName", "kept");
        sql("PRAGMA wal_checkpoint(TRUNCATE)");
        run({"/bin/cp", path_, copy});
        Notices notices(sessions[0].get(), {"General"});
        set("FSN", "new"), set("DeviceModel", "new"), set("DeviceName", "between"), set("DeviceName", "kept");
        EXPECT_EQ(notices.await(4).size(), 4U);
        sql("PRAGMA wal_checkpoint(TRUNCATE)");
        EXPECT_EQ(serial(0) + serial(1), "newnew");
        throughSqlite ? restore(copy) : run({"/bin/cp", copy, path_});
        EXPECT_TRUE(dro_test::eventually([&] { return serial(0) + serial(1) == "oldold"; }));
        // A single change writes what was there before the restore.
        const std::vector<hab_host_value> next(changes, changes == 1
                                                            ? hab_host_value{"General", 0, "FSN", "new"}
                                                            : hab_host_value{"DALHNotifyDTN", 0, "Index", "5"});
        EXPECT_EQ(changes == 0 ? habctl({"set", "DALHNotifyDTN.Index", "5"}).status
                               : hab_host_set_all(sessions[1].get(), next.data(), changes, nullptr),
                  0);
        EXPECT_EQ(notices.await(6).size(), 6U);
        set("FSN", "next");
        const Seen seen = notices.await(7);
        EXPECT_EQ(Seen(seen.begin() + 4, seen.end()),
                  (Seen{"General.DeviceModel@0", "General.FSN@0", "General.FSN@0"}));
        EXPECT_EQ(sql("PRAGMA integrity_check"), "ok");
    }
}

TEST_F(NoticesTest, LeaveSignalsToTheProgramsOwnThreads) {
    Notices notices(s_, {"General"});
    sigset_t usr2;
    sigemptyset(&usr2);
    sigaddset(&usr2, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &usr2, nullptr);
    kill(getpid(), SIGUSR2);  // its default action kills the process, so no thread may receive it now
    hab_set_ascii(s_, "General", 0, "FSN", "1");
    EXPECT_EQ(notices.await(1).size(), 1U);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGUSR2), 1);
    signal(SIGUSR2, SIG_IGN);
    pthread_sigmask(SIG_UNBLOCK, &usr2, nullptr);
}

}  // namespace

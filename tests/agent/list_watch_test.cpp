// The watch over a list that the cloud asked for: a list that does not get there in time fails its transaction.
#include <cerrno>

#include "dro_cdil.h"
#include "dro_get_set_config.h"
#include "dro_monitor.h"
#include "dro_url.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr const char* kWord = "RADebugLog.cdilDebugStatus";
constexpr const char* kStarted = "Cdil Timeout Monitoring Thread Started!\n";
constexpr const char* kLate = "t-1 0 CDIL:Fail-Error timeout";
constexpr const char* kSignalled = "Cdil is Being Success or Failure, sending Thread Signal to Cdilstatus thread\n";
constexpr std::chrono::milliseconds kSoon{100};

class ListWatch : public PipelineTest {
 protected:
    // Subscribes, with this long until a list is late. The pipeline is there, its dispatcher where the store says so.
    void start(std::chrono::milliseconds watch) {
        set_durations([watch](dro::Durations& durations) { durations.listWatch = watch; });
        start_agent();
        store.set_all({{"RADebugLog.cdilTimestamp", "1700000000"}, {"DroStatus.cdilSupport", "true"}});
        dro::init_devToCld_push_sync();
    }

    void fetch(const char* uuid) {
        dro::init_fetch_cd(uuid, 0, "app");
        ASSERT_TRUE(eventually([] { return dro::timeoutResponse.waiters() == 1; }));
    }

    // Waits for the end of the watch and checks what every end leaves.
    void expect_over() {
        ASSERT_TRUE(eventually([] { return dro::active_monitors() == 0; }));
        EXPECT_EQ(store.get("DroStatus.cdilTimeout"), "false");
        EXPECT_EQ(store.get(kWord), "none");
        EXPECT_TRUE(log.wait_for("timeoutState Reset to false\n"));
        EXPECT_TRUE(log.wait_for("cdilDebugStatus field set to none\n"));
    }
};

TEST_F(ListWatch, EndsWithTheDispatchersWord) {
    start(kPatience);
    const auto expect = [&](const char* word, const Texts& marks, const char* logged) {
        log.forget();
        fetch("t-1");
        const StoreSpy spy;
        store.set(kWord, word);
        expect_over();
        EXPECT_EQ(spy.writes("RADebugLog."), marks);
        EXPECT_TRUE(log.in_order({"CDIL Timeout callback\n", "LastCdilTransUUID is t-1\n", kSignalled,
                                  "Cdil Running State is being debug\n", logged}));
    };
    expect("success",
           {"RADebugLog.dbgArg1=CDIL Successfull", "RADebugLog.dbgArg2=FETCH_CD,1700000000,success",
            "RADebugLog.cdilDebugStatus=none"},
           "Cdil Successful\n");
    expect("failure", {"RADebugLog.cdilDebugStatus=none"}, "Invalid Response\n");
    EXPECT_TRUE(cloud.requests().empty()) << "neither is acknowledged here";
}

TEST_F(ListWatch, AListThatArrivesIsTheOnlyAnswer) {
    store.set("DroStatus.dispatcherSupport", "true");
    start(kPatience);
    add_device(store, 0);
    fetch("t-1");
    store.set_all({{"DALHNotifyCDIL.IndexBitMask0", "1"},
                   {"DALHNotifyCDIL.TotalIndexcount", "1"},
                   {"DALHNotifyCDIL.CDILstatus", "complete"}});
    expect_over();
    EXPECT_EQ(store.get("RADebugLog.dbgArg2"), "FETCH_CD,1700000000,success");
    const auto requests = cloud.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].path, "/transactionAck/");
    EXPECT_EQ(json_value(requests[0].body, "relayData"), "{\"cdl\":[" + device_record(0, true) + "]}");
}

TEST_F(ListWatch, ALateListFailsItsTransaction) {
    start(kSoon);
    for (const bool heard : {true, false}) {
        log.forget();
        cloud.forget();
        cloud.answer_all(heard ? accepted() : empty_answer());
        store.set("RADebugLog.raCdilTimeout", "false");
        dro::init_fetch_cd("t-1", 0, "app");
        EXPECT_EQ(acknowledgements(1).front(), kLate);
        expect_over();
        EXPECT_EQ(store.get("RADebugLog.dbgArg2"), "FETCH_CD,1700000000,failure");
        EXPECT_EQ(store.get("RADebugLog.raCdilTimeout"), "true");
        EXPECT_TRUE(log.has("Cdil status request timeout reached\n"));
        EXPECT_EQ(log.has("Failed to send transack for CDIL timeout\n", 4), !heard);
        EXPECT_EQ(cloud.requests().size(), heard ? 1U : 3U);
    }
}

TEST_F(ListWatch, AnEarlyWordIsLost) {
    start(kSoon);
    store.set(kWord, "success");
    ASSERT_TRUE(log.wait_for(kSignalled));
    dro::init_fetch_cd("t-1", 0, "app");
    EXPECT_EQ(acknowledgements(1).front(), kLate);
    expect_over();
}

TEST_F(ListWatch, OneTransactionHasOneWatch) {
    start(kPatience);
    fetch("t-1");
    dro::init_fetch_cd("t-1", 0, "app");
    ASSERT_TRUE(log.wait_for("CDIL Timeout callback\n", 2));
    store.set(kWord, "failure");
    expect_over();
    EXPECT_EQ(log.count(kStarted), 1U);
    fetch("t-1");
    EXPECT_EQ(log.count(kStarted), 2U) << "the next order of the same name";
}

TEST_F(ListWatch, WatchesTheFetchThatStartedIt) {
    start(kSoon);
    store.set("DroStatus.cdilTransUuid", "old");
    StoreSpy spy;
    bool flagSeen = false;
    spy.before_write("DroStatus.cdilTransUuid", [&] {
        flagSeen = log.wait_for("CDIL Timeout callback\n");
        eventually([&] { return log.has(kStarted); }, std::chrono::milliseconds(50));
    });
    dro::init_fetch_cd("t-1", 0, "app");
    EXPECT_TRUE(flagSeen);
    EXPECT_EQ(acknowledgements(1).front(), kLate);
    expect_over();
}

TEST_F(ListWatch, SurvivesWhatTheSystemRefuses) {
    start(kPatience);
    fetch("t-1");
    {
        const FailCalls fault(Call::condSignal, EAGAIN);
        const StoreSpy spy;
        store.set(kWord, "success");
        ASSERT_TRUE(log.wait_for("timeoutState Reset to false\n"));
        EXPECT_TRUE(log.has("Unable to trigger Cdil Status thread condition\n", 4));
        EXPECT_EQ(spy.writes(), Texts{"DroStatus.cdilTimeout=false"});
    }
    store.set(kWord, "failure");
    expect_over();
    {
        const FailCalls fault(Call::condTimedWait, EINVAL);
        fetch("t-2");
        EXPECT_TRUE(log.wait_for("System Error Occured\n")) << "and it waits on";
    }
    store.set(kWord, "success");
    expect_over();
    {
        const FailCalls fault(Call::mutexLock, EDEADLK, dro::mutex_act_lock.native());
        dro::init_fetch_cd("t-3", 0, "app");
        EXPECT_TRUE(log.wait_for("Unable to Lock cdilstatus Mutex\n"));
        ASSERT_TRUE(eventually([] { return dro::active_monitors() == 0; }));
        EXPECT_EQ(store.get("DroStatus.cdilTimeout"), "true") << "nothing is put back";
    }
    {
        const FailCalls fault(Call::threadCreate, EAGAIN);
        ::testing::internal::CaptureStderr();
        dro::cdilTimeout_cbHandler(nullptr);
        EXPECT_TRUE(
            ::testing::internal::GetCapturedStderr().starts_with("Failed to initialize Thread for cdilTimeout\n: "));
    }
    dro::cdilTimeout_cbHandler(nullptr);
    EXPECT_TRUE(eventually([] { return dro::timeoutResponse.waiters() == 1; })) << "the transaction is free again";
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(ListWatch, ShutdownPutsTheFieldsBackWithoutAReport) {
    start(kPatience);
    fetch("t-1");
    dro::stop_monitors();
    expect_over();
    EXPECT_EQ(store.get("RADebugLog.raCdilTimeout"), "false");
    EXPECT_TRUE(cloud.requests().empty());
}

}  // namespace
}  // namespace dro_test

// The monitors: each order to the Circle agent and each list requested by the cloud has one monitor, which reports the
// result or a time-out.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <functional>
#include <thread>

#include "agent_probe.h"
#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_get_set_config_list.h"
#include "dro_main.h"
#include "dro_monitor.h"
#include "dro_reg.h"
#include "dro_stop.h"
#include "dro_url.h"
#include "dro_url_pipeline.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr const char* kAnswer = "CircleCfgInternal.activationStatusDROA";
constexpr const char* kIdle = "ActivationStatusDROA field set to none\n";
constexpr const char* kDone =
    "Circle is Being Activated or deactivated, sending Thread Signal to Provisioning thread\n";
constexpr const char* kListPushed = "Cdil is Being Success or Failure, sending Thread Signal to Cdilstatus thread\n";
constexpr const char* kActivationSeen = "Circle Activation callback\n";
constexpr std::chrono::milliseconds kSoon{150};
constexpr std::chrono::milliseconds kLater{600};  // enough for an immediate answer

// One kind of order: its flag, its answer field, its monitor's signal, and the acknowledgement after a time-out.
struct Kind {
    const char* flag;
    const char* answer;
    dro::MonitorSignal& signal;
    const char* late;
};
const Kind kActivation{"DroStatus.CircleAct", kAnswer, dro::activationResponse,
                       "u-1 0 Activation-Failed_FAIL-Error TimeOut"};
const Kind kProvision{"DroStatus.CircleProvision", kAnswer, dro::provisionResponse,
                      "u-1 0 Provision-Failed_FAIL-Error TimeOut"};
const Kind kToggle{"DroStatus.CircleToggle", "CircleCfgInternal.sorbEnableStatusDROA", dro::circleToggleResponse,
                   "u-2 0 Fail-Error timeout"};
const Kind kList{"DroStatus.cdilTimeout", "RADebugLog.cdilDebugStatus", dro::timeoutResponse,
                 "t-1 0 CDIL:Fail-Error timeout"};

class Monitors : public AgentTest {
 protected:
    // Subscribes, with `watch` as the answer time-out. There is no dispatcher.
    void start(std::chrono::milliseconds watch) {
        durations.circleWatch = durations.listWatch = watch;
        dro::set_durations(durations);
        start_agent();
        store.set_all({{"DroCfg.circle_uuid", "u-1"},
                       {"CircleDebug.errorMessage", "E7"},
                       {"CircleStatus.activationStatus", "provisioned"},
                       {"RADebugLog.cdilTimestamp", "1700000000"},
                       {"DroStatus.cdilSupport", "true"}});
        dro::circle_cb_subscription();
        dro::init_devToCld_push_sync();
    }

    // Writes an order and waits until it is monitored. `waiting`: the number of waiting monitors of its kind.
    void order(const Kind& kind, const char* toggleUuid = "u-2", int waiting = 1) {
        if (&kind == &kToggle) {
            store.set("CircleStatus.sorbStatus", "none");
            dro::toggle_circle(toggleUuid, dro::JsonText(strdup(R"({"toggle":"on"})")));
        } else if (&kind == &kList) {
            dro::init_fetch_cd("t-1", 0, "app");
        } else {
            store.set("CircleCfgInternal.actionDROA", "activate");
            store.set(kind.flag, "true");
        }
        ASSERT_TRUE(watched(kind, waiting)) << kind.flag;
    }
    static bool watched(const Kind& kind, int waiting = 1) {
        return eventually([&] { return waiters(kind.signal) == waiting; });
    }
    static bool over() {
        return eventually([] { return active_monitors() == 0; });
    }

    // Waits until all monitors have returned. Returns the acknowledgements, sorted: their order is not defined.
    Texts acks_when_over() {
        EXPECT_TRUE(over());
        Texts all = acknowledgements(0);
        all.resize(cloud.requests().size(), "no acknowledgement");
        std::sort(all.begin(), all.end());
        cloud.forget();
        return all;
    }
};

// ---- All kinds ----

TEST_F(Monitors, ReportATimeOutAndLoseAnEarlyAnswer) {
    start(kSoon);
    store.set(kAnswer, "activated");  // before any order
    store.set(kList.answer, "success");
    ASSERT_TRUE(log.wait_for(kDone) && log.wait_for(kListPushed));
    const Cases<const Kind*, Texts> cases{
        {&kActivation,
         {kActivationSeen, "Circle Activation Monitoring Thread Started!\n",
          "actionDROA field cleaned up and reset to none ....\n"}},
        {&kProvision,
         {"Provision callback\n", "Circle Provision Monitoring Thread Started!\n", "LastCircleTransUUID is u-1\n"}},
        {&kToggle,
         {"Circle Toggle callback\n", "Circle running state toggle Monitoring Thread Started!\n",
          "LastCircleTransUUID is u-2\n", "Circle Toggle request timeout reached\n"}},
        {&kList,
         {"CDIL Timeout callback\n", "Cdil Timeout Monitoring Thread Started!\n", "LastCdilTransUUID is t-1\n",
          "Cdil status request timeout reached\n"}}};
    for (const auto& [kind, said] : cases) {
        // Notices are delivered one at a time in write order: once this one is handled, so are the order's.
        log.forget();
        store.set("DALHNotifyCDUPDATE.IndexCD", "257");
        ASSERT_TRUE(log.wait_for("Reset for the UPDATE_CD Index\n"));
        log.forget();
        order(*kind);
        EXPECT_EQ(acks_when_over(), Texts{kind->late});
        EXPECT_TRUE(log.in_order(said)) << kind->flag;
        EXPECT_EQ(store.get(kind->flag), "false") << kind->flag;
        EXPECT_EQ(store.get(kind->answer), "none") << kind->flag;
    }
    EXPECT_EQ(store.get("RADebugLog.dbgArg2"), "FETCH_CD,1700000000,failure");
    EXPECT_EQ(store.get("RADebugLog.raCdilTimeout"), "true");
    EXPECT_FALSE(log.has("Failed to send transack for CDIL timeout\n"));
    cloud.answer_all(kEmpty);
    order(kList);
    EXPECT_EQ(acks_when_over(), Texts(3, kList.late));
    EXPECT_TRUE(log.has("Failed to send transack for CDIL timeout\n", 4));
}

TEST_F(Monitors, AFailedSignalIsReportedAtOnce) {
    start(kLater);
    constexpr const char* kNoActivation = "Unable to trigger Circle Activation thread condition\n";
    constexpr const char* kNoProvision = "Unable to trigger Circle Provision thread condition\n";
    constexpr const char* kNoToggle = "Unable to trigger toggle signal, when sorbStatus field is changed\n";
    const Cases<const Kind*, const char*, const char*, Texts> cases{
        {&kProvision, "provisioned", kNoProvision, {"u-1 0 Provision-Failed_FAIL- System Resource Unavailable"}},
        {&kActivation, "activated", kNoActivation, {"u-1 0 Activation-Failed_FAIL- System Resource Unavailable"}},
        {&kActivation, "fail", kNoActivation, {"u-1 0 Activation-Failed_E7"}},
        {&kProvision, "fail", kNoProvision, {"u-1 0 Provision-Failed_E7"}},
        {&kToggle, "enabled", kNoToggle, {"u-1 0 Fail- System Resource Available"}},
        {&kList, "success", "Unable to trigger Cdil Status thread condition\n", {}}};
    for (const auto& [kind, answer, logged, acks] : cases) {
        log.forget();
        store.set(kActivation.flag, "false");
        order(*kind);
        const FailCalls fault(Call::condSignal, EAGAIN);
        const StoreSpy spy;
        store.set(kind->answer, answer);
        Texts expected = acks;
        expected.emplace_back(kind->late);
        EXPECT_EQ(acks_when_over(), expected);
        EXPECT_TRUE(log.has(logged, 4)) << logged;
        EXPECT_EQ(log.has("Call Circle Status API failed!\n", 4), std::string(answer) == "provisioned") << answer;
        EXPECT_EQ(spy.writes(kList.flag).size(), kind == &kList ? 2U : 0U) << "reset at once, and at the end";
    }
}

TEST_F(Monitors, AFailedWaitIsReportedAndContinued) {
    start(kPatience);
    const Cases<const Kind*, const char*, const char*, const char*> cases{
        {&kActivation, "u-1 0 Activation-Failed_FAIL-System Error Occured", "deactivated",
         "u-1 1 Success-Deactivated_E7"},
        {&kProvision, "u-1 0 Provision-Failed_FAIL- System Failure occured", "provisioned",
         "u-1 1 Success-Provisioned_E7"},
        {&kToggle, "u-2 0 Fail-System Error Occured", "disabled", "u-2 1 Success-Disabled"},
        {&kList, nullptr, "success", nullptr}};
    for (const auto& [kind, failure, answer, success] : cases) {
        log.forget();
        const FailCalls fault(Call::condTimedWait, EINVAL);
        order(*kind);
        EXPECT_TRUE(failure != nullptr ? acknowledgements(1) == Texts{failure}
                                       : log.wait_for("System Error Occured\n"));
        ASSERT_TRUE(watched(*kind));
        store.set(kind->answer, answer);
        EXPECT_EQ(acks_when_over(), failure != nullptr ? (Texts{failure, success}) : Texts{});
    }
}

TEST_F(Monitors, AFailedLockStopsTheMonitor) {
    start(kPatience);
    const Cases<const Kind*, dro::Mutex*, const char*> cases{
        {&kActivation, &dro::mutex_act_lock, "Unable to Lock Activation Mutex\n"},
        {&kProvision, &dro::mutex_prov_lock, ""},  // reported on standard error only
        {&kToggle, &dro::mutex_toggle_lock, "Unable to Lock Circle State toggle Mutex\n"},
        {&kList, &dro::mutex_act_lock, "Unable to Lock cdilstatus Mutex\n"}};
    for (const auto& [kind, mutex, logged] : cases) {
        log.forget();
        const FailCalls fault(Call::mutexLock, EDEADLK, mutex->native());
        ::testing::internal::CaptureStderr();
        store.set(kind->flag, "true");
        EXPECT_TRUE(eventually([&fault] { return fault.failed() == 1; }) && over()) << logged;
        EXPECT_TRUE(::testing::internal::GetCapturedStderr().starts_with("pthread_mutex_lock: ")) << logged;
        EXPECT_EQ(log.count_starting("Unable to Lock", 4), log.count(logged, 4));
        EXPECT_EQ(log.has(logged), *logged != '\0') << logged;
        EXPECT_EQ(store.get(kind->flag), "true") << "nothing is reset";
    }
    EXPECT_TRUE(cloud.requests().empty());
}

// ---- The stop ----

TEST_F(Monitors, WriteNothingAfterAStop) {
    start(kPatience);
    for (const Kind* kind : {&kActivation, &kProvision, &kToggle, &kList}) {
        order(*kind);
    }
    const StoreSpy spy;
    dro::stop_monitors();
    EXPECT_EQ(acks_when_over(), Texts{});
    dro::request_stop();
    dro::alarmcallback(SIGALRM);
    dro::JorvAgentStatus_cbHandler(0, 0, 0);
    EXPECT_EQ(spy.writes(), Texts{});
    log.forget();
    store.set_all({{kActivation.flag, "true"}, {"DALHNotifyCDIL.CDILstatus", "complete"}});
    EXPECT_FALSE(eventually([&] { return log.has(kActivationSeen); }, kSoon)) << "later notices are ignored";
    dro::t_Handler_cdilSync();
    EXPECT_EQ(spy.writes(), Texts{"DALHNotifyCDIL.CDILstatus=init"});
}

TEST_F(Monitors, InterruptedWorkWritesNothingMore) {
    start(kPatience);
    const auto answered = [this](const Kind& kind, const char* answer) {
        order(kind);
        store.set(kind.answer, answer);
    };
    const std::vector<std::function<void()>> cases{
        [&] { answered(kActivation, "deactivated"); }, [&] { answered(kActivation, "activated"); },
        [&] { answered(kProvision, "provisioned"); }, [&] { answered(kToggle, "enabled"); },
        // commands that are answered at once
        [] { dro::toggle_circle("u-9", dro::JsonText(strdup(R"({"toggle":"on"})"))); },
        [] {
            constexpr const char* kCredentials =
                R"({"circleId":"c","accessToken":"a","refreshToken":"r","localToken":"l","cloudHost":"h"})";
            dro::circle_provision("u-9", "PROVISION_CIRCLE", dro::JsonText(strdup(kCredentials)));
        },
        [this] {
            store.set("CircleDebug.sorbActivationProgress", "inProgress");
            dro::circle_action("u-9", "ACTIVATE_CIRCLE", true);
        }};
    for (const auto& work : cases) {
        SCOPED_TRACE(&work - cases.data());
        clear_stop();
        cloud.forget();
        cloud.script("transactionAck/", {kStall});
        cloud.script("pc/circle/cuuid", {kStall});
        store.set_all({{kActivation.flag, "false"}, {"CircleStatus.sorbStatus", "enabled"}});
        std::thread stopped(work);
        EXPECT_EQ(cloud.wait_for(1).size(), 1U);
        const StoreSpy spy;
        dro::request_stop();
        stopped.join();
        EXPECT_TRUE(over());
        EXPECT_EQ(spy.writes(), Texts{});
        cloud.release();
    }
}

TEST_F(Monitors, APendingSigusrOneIsAStopAlsoOnceItIsTaken) {
    ASSERT_EQ(dro::block_signals_and_watch(), 0);
    raise(SIGUSR1);
    EXPECT_FALSE(dro::pause_for(std::chrono::hours(1)));
    sigset_t taken;
    sigemptyset(&taken);
    sigaddset(&taken, SIGUSR1);
    EXPECT_EQ(sigwaitinfo(&taken, nullptr), SIGUSR1);
    EXPECT_TRUE(dro::stop_requested());
}

// ---- Answers ----

TEST_F(Monitors, ReportTheAnswer) {
    start(kPatience);
    // `said`: log texts in order, except for the last one: the reset's notice may come at any time.
    const auto expect = [&](const Kind& kind, const char* answer, const Texts& said, const Texts& reports,
                            const Texts& writes) {
        SCOPED_TRACE(answer);
        log.forget();
        store.set(kActivation.flag, "false");
        order(kind);
        const StoreSpy spy;
        store.set(kind.answer, answer);
        EXPECT_EQ(acks_when_over(), reports);
        EXPECT_EQ(spy.writes(), writes);
        EXPECT_TRUE(log.wait_for(said.back()));
        EXPECT_TRUE(log.in_order({said.begin(), said.end() - 1}));
    };
    const auto told = [](const char* woken, const std::string& message) {
        return Texts{"Circle Activation Status callback\n", woken, "message = " + message + "\n", kIdle};
    };
    constexpr const char* kActOff = "DroStatus.CircleAct=false";
    constexpr const char* kProvisionOff = "DroStatus.CircleProvision=false";
    constexpr const char* kAnswerOff = "CircleCfgInternal.activationStatusDROA=none";
    constexpr const char* kActionOff = "CircleCfgInternal.actionDROA=none";
    const Texts allOff{kActOff, kProvisionOff, kAnswerOff, kActionOff};
    expect(kActivation, "activatedNow", told(kDone, "Success-Activated"), {"no acknowledgement"},
           {kProvisionOff, kAnswerOff, kActionOff});
    expect(kActivation, "failed",
           told("Circle Activation Sequences Failed, sending Thread Signal to Provisioning thread to report error\n",
                "Fail-Activation Failed"),
           {"u-1 0 Activation-Failed_E7"}, allOff);
    EXPECT_TRUE(log.has("Activation failed, calling TransAck with msg: Activaion-Failed\n", 4));
    const Texts deactivated = told(kDone, "Success-Deactivated");
    expect(kActivation, "deactivated", deactivated, {"u-1 1 Success-Deactivated_E7"}, allOff);
    store.set("CircleStatus.activationStatus", "deactivated");
    expect(kActivation, "deactivated", deactivated, {"u-1 1 Success-Deactivated_E7"},
           {"CircleStatus.sorbStatus=disabled", kActOff, kProvisionOff, kAnswerOff, kActionOff});

    expect(kProvision, "failed",
           told("Circle Provisioning Sequences Failed, sending Thread Signal to Activation thread to report error\n",
                "FAIL-Provision failed"),
           {"u-1 0 Provision-Failed_E7"}, {kActOff, kProvisionOff, kAnswerOff});
    store.set(kToggle.answer, "enabled");
    expect(kProvision, "provisioned",
           told("Circle is Being Provisioned, sending Thread Signal to Provisioning thread\n", "Success-Provisioned"),
           {"u-1 1 Success-Provisioned_E7"},
           {"CircleDebug.sorbSyncDone=provisioned", "CircleDebug.sorbSyncDone=enabled",
            "CircleStatus.sorbStatus=enabled", kActOff, kProvisionOff, kAnswerOff,
            // the list that follows
            "DroStatus.cdilTransUuid=", "DroStatus.cdilsyncAt=PROVISION", "DILGeneral.CDILTrigger=true",
            "DALHConfig.FeatureID=8", "DALHConfig.CDILRequest=occupied", "DALHConfig.ProcessID=1"});

    store.set("CircleStatus.activationStatus", "provisioned");
    const Texts toggled{"Circle Toggle Status field change callback\n", "Circle Running State is being toggled\n",
                        "TransAck API successfull\n", "CircleToggle Reset to false\n",
                        "sorbEnableStatusDROA field toggled by DroAgent\n"};
    constexpr const char* kToggleOff = "DroStatus.CircleToggle=false";
    constexpr const char* kToggleAnswerOff = "CircleCfgInternal.sorbEnableStatusDROA=none";
    expect(kToggle, "enabled", toggled, {"u-2 1 Success-Enabled"},
           {"CircleDebug.sorbSyncDone=enabled", kToggleOff, kToggleAnswerOff});
    expect(kToggle, "disabled", toggled, {"u-2 1 Success-Disabled"},
           {"CircleDebug.sorbSyncDone=disabled", kToggleOff, kToggleAnswerOff});
    expect(kToggle, "disabledX", toggled, {"u-2 1 Success-Disabled"}, {kToggleOff, kToggleAnswerOff});
    expect(kToggle, "fail-now", toggled, {"u-2 0 Fail-Circle State Toggle Failed"}, {kToggleOff, kToggleAnswerOff});

    const auto listed = [](const char* outcome) {
        return Texts{kListPushed, "Cdil Running State is being debug\n", outcome, "timeoutState Reset to false\n",
                     "cdilDebugStatus field set to none\n"};
    };
    constexpr const char* kWatchOff = "DroStatus.cdilTimeout=false";
    constexpr const char* kOutcomeOff = "RADebugLog.cdilDebugStatus=none";
    expect(kList, "success", listed("Cdil Successful\n"), {},
           {"RADebugLog.dbgArg1=CDIL Successfull", "RADebugLog.dbgArg2=FETCH_CD,1700000000,success", kWatchOff,
            kOutcomeOff});
    expect(kList, "failure", listed("Invalid Response\n"), {}, {kWatchOff, kOutcomeOff});
}

TEST_F(Monitors, AreWokenOnlyByAnAnswer) {
    start(kPatience);
    for (const char* nobodys : {"fail", "Activated"}) {
        log.forget();
        store.set(kAnswer, nobodys);
        EXPECT_TRUE(log.wait_for(kIdle)) << nobodys;
    }
    order(kToggle);
    store.set(kToggle.answer, "working");
    EXPECT_TRUE(log.wait_for("sorbEnableStatusDROA field set to none\n"));
    cloud.answer_all(kEmpty);
    store.set(kToggle.answer, "enabled");
    EXPECT_EQ(acks_when_over(), Texts(3, "u-2 1 Success-Enabled"));
    EXPECT_FALSE(log.has("TransAck API successfull\n")) << "no acknowledgement was answered";
}

TEST_F(Monitors, AnAnswerWakesTheActivationOrTheOlderOfTwoToggles) {
    start(kLater);
    order(kActivation);
    order(kProvision);
    store.set(kAnswer, "fail");
    EXPECT_EQ(acks_when_over(), (Texts{"u-1 0 Activation-Failed_E7", kProvision.late}));
    order(kToggle);
    order(kToggle, "u-3", 2);
    store.set(kToggle.answer, "enabled");
    ASSERT_TRUE(log.wait_for("CircleToggle Reset to false\n"));
    store.set(kToggle.answer, "enabled");  // ignored: no toggle is outstanding any more
    EXPECT_EQ(acks_when_over(), (Texts{"u-2 1 Success-Enabled", "u-3 0 Fail-Error timeout"}));
}

// ---- The list ----

TEST_F(Monitors, AListIsRequestedEvenWithoutAWatch) {
    start(kPatience);
    const FailCalls fault(Call::threadCreate, EAGAIN);
    ::testing::internal::CaptureStderr();
    dro::init_fetch_cd("t-1", 0, "app");
    EXPECT_TRUE(eventually([&] { return fault.failed() == 1; }) && over());
    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(errors.starts_with("Failed to initialize Thread for cdilTimeout\n: ")) << errors;
    order(kList);  // the transaction can be used again
}

}  // namespace
}  // namespace dro_test

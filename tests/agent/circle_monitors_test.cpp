// The Circle agent's answers: each order has a monitor that reports what came, or that nothing did.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "dro_circle.h"
#include "dro_monitor.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr const char* kAnswer = "CircleCfgInternal.activationStatusDROA";
constexpr const char* kToggleAnswer = "CircleCfgInternal.sorbEnableStatusDROA";
constexpr const char* kActivationLate = "u-1 0 Activation-Failed_FAIL-Error TimeOut";
constexpr const char* kProvisionLate = "u-1 0 Provision-Failed_FAIL-Error TimeOut";
constexpr std::chrono::milliseconds kSoon{150};
constexpr std::chrono::milliseconds kLater{600};  // long enough for an answer that is given at once

class CircleMonitors : public PipelineTest {
 protected:
    // Subscribes, with this long until an answer is late.
    void start(std::chrono::milliseconds watch) {
        set_durations([watch](dro::Durations& durations) { durations.circleWatch = watch; });
        start_agent();
        dro::circle_cb_subscription();
        store.set_all({{"DroCfg.circle_uuid", "u-1"},
                       {"CircleDebug.errorMessage", "E7"},
                       {"CircleStatus.activationStatus", "provisioned"}});
    }

    // Orders come as their flags, and are watched when these return.
    void order_activation() { order("DroStatus.CircleAct", dro::activationResponse); }
    void order_provisioning() { order("DroStatus.CircleProvision", dro::provisionResponse); }
    void order_toggle(const char* uuid, int waiters = 1) {
        store.set("CircleStatus.sorbStatus", "none");
        dro::toggle_circle(uuid, dro::JsonText(strdup(R"({"toggle":"on"})")));
        ASSERT_TRUE(waiting(dro::circleToggleResponse, waiters));
    }
    static bool waiting(dro::MonitorSignal& signal, int count = 1) {
        return eventually([&] { return signal.waiters() == count; });
    }

    // Waits for the end of all monitors; what was acknowledged, sorted, since two may report in either order.
    Texts acks_when_over() {
        EXPECT_TRUE(eventually([] { return dro::active_monitors() == 0; }));
        Texts all = acknowledgements(0);
        std::sort(all.begin(), all.end());
        cloud.forget();
        return all;
    }

 private:
    void order(const char* flag, dro::MonitorSignal& signal) {
        store.set("CircleCfgInternal.actionDROA", "activate");
        store.set(flag, "true");
        ASSERT_TRUE(waiting(signal)) << flag;
    }
};

TEST_F(CircleMonitors, ReportTheAgentsAnswer) {
    start(kPatience);
    const auto expect = [&](bool provisioning, const char* answer, const Texts& acks, const std::string& message,
                            const char* actAfter) {
        log.forget();
        store.set("DroStatus.CircleAct", "false");
        provisioning ? order_provisioning() : order_activation();
        store.set(kAnswer, answer);
        ASSERT_TRUE(eventually([] { return dro::active_monitors() == 0; }));
        EXPECT_EQ(cloud.requests("pc/circle/cuuid").size(), acks.empty() ? 1U : 0U) << answer;
        EXPECT_EQ(acks_when_over(), acks) << answer;
        EXPECT_TRUE(log.has("message = " + message + "\n")) << answer;
        EXPECT_EQ(store.get("DroStatus.CircleAct"), actAfter) << answer;
        EXPECT_EQ(store.get("DroStatus.CircleProvision"), "false") << answer;
        EXPECT_EQ(store.get(kAnswer), "none") << answer;
        EXPECT_EQ(store.get("CircleCfgInternal.actionDROA"), provisioning ? "activate" : "none") << answer;
        EXPECT_TRUE(log.wait_for("ActivationStatusDROA field set to none\n")) << "the reset's notice";
    };
    expect(false, "activated", {}, "Success-Activated", "true");
    expect(false, "activatedNow", {}, "Success-Activated", "true");
    expect(false, "deactivated", {"u-1 1 Success-Deactivated_E7"}, "Success-Deactivated", "false");
    expect(false, "failed", {"u-1 0 Activation-Failed_E7"}, "Fail-Activation Failed", "false");
    expect(true, "failed", {"u-1 0 Provision-Failed_E7"}, "FAIL-Provision failed", "false");
    expect(true, "provisioned", {"u-1 1 Success-Provisioned_E7"}, "Success-Provisioned", "false");
    EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), "PROVISION");
    EXPECT_EQ(store.get("DALHConfig.ProcessID"), "1") << "a list follows a provisioning";
    EXPECT_TRUE(log.in_order({"Provision callback\n", "Circle Provision Monitoring Thread Started!\n",
                              "LastCircleTransUUID is u-1\n", "Circle Activation Status callback\n"}));
}

TEST_F(CircleMonitors, AreWokenWithTheTextsThatSupportKnows) {
    const auto expect = [&](const char* answer, const char* openOrder, const char* logged) {
        log.forget();
        store.set_all({{"DroStatus.CircleAct", "false"}, {"DroStatus.CircleProvision", "false"}, {kAnswer, answer}});
        store.set(openOrder, "true");
        dro::activationStatus_cbHandler(nullptr);
        EXPECT_TRUE(log.in_order({"Circle Activation Status callback\n", logged})) << answer;
        EXPECT_EQ(log.lines().size(), 2U) << answer;
    };
    constexpr const char* kNone = "DroStatus.CircleToggle";
    constexpr const char* kIdle = "ActivationStatusDROA field set to none\n";
    constexpr const char* kDone =
        "Circle is Being Activated or deactivated, sending Thread Signal to Provisioning thread\n";
    expect("provisioned", kNone, "Circle is Being Provisioned, sending Thread Signal to Provisioning thread\n");
    expect("activated", kNone, kDone);
    expect("deactivated", kNone, kDone);
    expect("fail", "DroStatus.CircleAct",
           "Circle Activation Sequences Failed, sending Thread Signal to Provisioning thread to report error\n");
    expect("fail", "DroStatus.CircleProvision",
           "Circle Provisioning Sequences Failed, sending Thread Signal to Activation thread to report error\n");
    expect("fail", kNone, kIdle);
    expect("Activated", kNone, kIdle);
}

TEST_F(CircleMonitors, ReportSilenceAndLoseAnEarlyAnswer) {
    start(kSoon);
    store.set(kAnswer, "activated");  // before there is an order
    ASSERT_TRUE(
        log.wait_for("Circle is Being Activated or deactivated, sending Thread Signal to Provisioning thread\n"));
    order_activation();
    EXPECT_EQ(acks_when_over(), Texts{kActivationLate});
    EXPECT_EQ(store.get("DroStatus.CircleAct"), "false");
    EXPECT_TRUE(log.in_order({"Circle Activation callback\n", "Circle Activation Monitoring Thread Started!\n",
                              "actionDROA field cleaned up and reset to none ....\n"}));
    order_provisioning();
    EXPECT_EQ(acks_when_over(), Texts{kProvisionLate});
    order_toggle("u-2");
    EXPECT_EQ(acks_when_over(), Texts{"u-2 0 Fail-Error timeout"});
    EXPECT_EQ(store.get("DroStatus.CircleToggle"), "false");
    EXPECT_EQ(store.get(kToggleAnswer), "none");
    EXPECT_TRUE(log.has("Circle Toggle request timeout reached\n"));
}

TEST_F(CircleMonitors, ReportAnAnswerOnceThatIsGivenTwice) {
    start(kPatience);
    cloud.script("pc/circle/cuuid", {stall()});
    order_activation();
    store.set(kAnswer, "activated");
    ASSERT_EQ(cloud.wait_for(1).size(), 1U);
    store.set(kAnswer, "activated");
    store.set("DroStatus.CircleAct", "true");  // the same order seen again
    ASSERT_TRUE(log.wait_for("Circle Activation callback\n", 2));
    cloud.release();
    ASSERT_TRUE(eventually([] { return dro::active_monitors() == 0; }));
    EXPECT_EQ(cloud.requests().size(), 1U);
    EXPECT_EQ(log.count("Circle Activation Monitoring Thread Started!\n"), 1U);
}

TEST_F(CircleMonitors, AFailureGoesToTheActivationWhileThatIsOpen) {
    start(kLater);
    order_activation();
    order_provisioning();
    store.set(kAnswer, "fail");
    EXPECT_EQ(acks_when_over(), (Texts{"u-1 0 Activation-Failed_E7", kProvisionLate}));
}

// ---- Toggle ----

TEST_F(CircleMonitors, ReportHowAToggleWent) {
    start(kPatience);
    const auto expect = [&](const char* answer, const char* ack, bool heard) {
        log.forget();
        cloud.answer_all(heard ? accepted() : empty_answer());
        order_toggle("u-2");
        store.set(kToggleAnswer, "working");
        ASSERT_TRUE(log.wait_for("sorbEnableStatusDROA field set to none\n")) << "not an answer";
        store.set(kToggleAnswer, answer);
        EXPECT_EQ(acks_when_over().front(), ack);
        EXPECT_EQ(log.has("TransAck API successfull\n"), heard) << answer;
        EXPECT_EQ(store.get("DroStatus.CircleToggle"), "false");
        EXPECT_EQ(store.get(kToggleAnswer), "none");
        EXPECT_TRUE(log.wait_for("sorbEnableStatusDROA field toggled by DroAgent\n")) << "the reset's notice";
        EXPECT_TRUE(
            log.in_order({"Circle Toggle callback\n", "Circle running state toggle Monitoring Thread Started!\n",
                          "LastCircleTransUUID is u-2\n", "Circle Toggle Status field change callback\n",
                          "Circle Running State is being toggled\n", "CircleToggle Reset to false\n"}));
    };
    expect("enabled", "u-2 1 Success-Enabled", true);
    expect("disabledX", "u-2 1 Success-Disabled", true);
    expect("fail-now", "u-2 0 Fail-Circle State Toggle Failed", true);
    expect("enabled", "u-2 1 Success-Enabled", false);
}

TEST_F(CircleMonitors, OfTwoTogglesTheAnswerWakesOne) {
    start(kLater);
    order_toggle("u-2");
    order_toggle("u-3", 2);
    store.set(kToggleAnswer, "enabled");
    ASSERT_TRUE(log.wait_for("CircleToggle Reset to false\n"));
    store.set(kToggleAnswer, "enabled");  // no toggle of this program's is outstanding any more
    const Texts all = acks_when_over();
    EXPECT_TRUE(all == (Texts{"u-2 0 Fail-Error timeout", "u-3 1 Success-Enabled"}) ||
                all == (Texts{"u-2 1 Success-Enabled", "u-3 0 Fail-Error timeout"}))
        << ::testing::PrintToString(all);
}

// ---- What the system refuses ----

TEST_F(CircleMonitors, ASignalThatFailsIsReportedAtOnce) {
    start(kLater);
    const auto expect = [&](bool provisioning, const char* answer, const char* logged, const Texts& acks,
                            bool reportedAsFailed) {
        log.forget();
        store.set("DroStatus.CircleAct", "false");
        provisioning ? order_provisioning() : order_activation();
        const FailCalls fault(Call::condSignal, EAGAIN);
        store.set(kAnswer, answer);
        EXPECT_EQ(acks_when_over(), acks) << answer << provisioning;
        EXPECT_TRUE(log.has(logged)) << answer << provisioning;
        EXPECT_EQ(log.has("Call Circle Status API failed!\n", 4), reportedAsFailed) << answer << provisioning;
    };
    constexpr const char* kActivation = "Unable to trigger Circle Activation thread condition\n";
    constexpr const char* kProvision = "Unable to trigger Circle Provision thread condition\n";
    expect(true, "provisioned", kProvision,
           {"u-1 0 Provision-Failed_FAIL- System Resource Unavailable", kProvisionLate}, true);
    expect(false, "activated", kActivation,
           {"u-1 0 Activation-Failed_FAIL- System Resource Unavailable", kActivationLate}, false);
    expect(false, "fail", kActivation, {"u-1 0 Activation-Failed_E7", kActivationLate}, false);
    expect(true, "fail", kProvision, {"u-1 0 Provision-Failed_E7", kProvisionLate}, false);
    order_toggle("u-2");
    const FailCalls fault(Call::condSignal, EAGAIN);
    store.set(kToggleAnswer, "enabled");
    EXPECT_EQ(acks_when_over(), (Texts{"u-1 0 Fail- System Resource Available", "u-2 0 Fail-Error timeout"}));
    EXPECT_TRUE(log.has("Unable to trigger toggle signal, when sorbStatus field is changed\n"));
}

TEST_F(CircleMonitors, AWaitThatFailsIsReportedAndGoesOn) {
    start(kPatience);
    const auto expect = [&](const std::function<void()>& order, dro::MonitorSignal& signal, const char* field,
                            const char* answer, const Texts& acks) {
        const FailCalls fault(Call::condTimedWait, EINVAL);
        order();
        EXPECT_EQ(acknowledgements(1), Texts{acks[0]});
        ASSERT_TRUE(waiting(signal));
        store.set(field, answer);
        EXPECT_EQ(acks_when_over(), acks);
    };
    expect([this] { order_activation(); }, dro::activationResponse, kAnswer, "deactivated",
           {"u-1 0 Activation-Failed_FAIL-System Error Occured", "u-1 1 Success-Deactivated_E7"});
    expect([this] { order_provisioning(); }, dro::provisionResponse, kAnswer, "provisioned",
           {"u-1 0 Provision-Failed_FAIL- System Failure occured", "u-1 1 Success-Provisioned_E7"});
    expect([this] { order_toggle("u-2"); }, dro::circleToggleResponse, kToggleAnswer, "disabled",
           {"u-2 0 Fail-System Error Occured", "u-2 1 Success-Disabled"});
}

TEST_F(CircleMonitors, ALockThatFailsEndsTheMonitor) {
    start(kPatience);
    const auto expect = [&](const char* flag, dro::Mutex& mutex, const Texts& logged) {
        log.forget();
        const FailCalls fault(Call::mutexLock, EDEADLK, mutex.native());
        ::testing::internal::CaptureStderr();
        store.set(flag, "true");
        EXPECT_TRUE(eventually([&] { return fault.failed() == 1 && dro::active_monitors() == 0; })) << flag;
        EXPECT_TRUE(::testing::internal::GetCapturedStderr().starts_with("pthread_mutex_lock: ")) << flag;
        EXPECT_EQ(log.count_starting("Unable to Lock", 4), logged.size()) << flag;
        EXPECT_TRUE(logged.empty() || log.has(logged[0], 4)) << flag;
        EXPECT_EQ(store.get(flag), "true") << "nothing is put back";
    };
    expect("DroStatus.CircleAct", dro::mutex_act_lock, {"Unable to Lock Activation Mutex\n"});
    expect("DroStatus.CircleProvision", dro::mutex_prov_lock, {});  // said on standard error only
    expect("DroStatus.CircleToggle", dro::mutex_toggle_lock, {"Unable to Lock Circle State toggle Mutex\n"});
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(CircleMonitors, ShutdownPutsTheFieldsBackWithoutAReport) {
    start(kPatience);
    order_activation();
    order_provisioning();
    order_toggle("u-2");
    dro::stop_monitors();
    EXPECT_EQ(acks_when_over(), Texts{});
    EXPECT_EQ(store.get("CircleCfgInternal.actionDROA"), "none");
    EXPECT_EQ(store.get("DroStatus.CircleProvision"), "false");
    EXPECT_EQ(store.get("DroStatus.CircleToggle"), "false");
}

// ---- Health ----

TEST_F(CircleMonitors, TheAgentsHealthReachesTheCloud) {
    start(kPatience);
    const auto expect = [&](const char* field, const char* value, const char* logged, const std::string& feature,
                            const std::string& state) {
        cloud.forget();
        log.forget();
        store.set(field, value);
        ASSERT_TRUE(log.wait_for("R_CLIENT_API call Successful\n\n")) << field;
        EXPECT_TRUE(log.has(logged, 1));
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].path, "/deviceEvents");
        const std::string& body = requests[0].body;
        const std::string token = json_value(body, "token");
        EXPECT_EQ(token.size(), 64U);
        EXPECT_EQ(body, "{\n\t\"token\":\t\"" + token + "\",\n\t\"ePOCHTimeStamp\":\t\"" +
                            json_value(body, "ePOCHTimeStamp") +
                            "\",\n\t\"modelNumber\":\t\"RX-1\",\n\t\"serialNumber\":\t\"FSN0123456789\",\n\t"
                            "\"fwVersion\":\t\"7.8.9\",\n\t\"jorvDeviceId\":\t\"jorv-1\",\n\t\"feature\":\t\"" +
                            feature + "\",\n\t\"state\":\t\"" + state + "\"\n}");
        EXPECT_TRUE(log.has("(DROAGENT) - Payload for Client Status is " + body + "\n"));
    };
    constexpr const char* kRunning = "CircleDebug.sorbAgentRunning";
    constexpr const char* kRunningText = "(DROAGENT) - circle Agent running Status callback\n";
    constexpr const char* kClient = "CircleDebug.rClientStatus";
    constexpr const char* kClientText = "(DROAGENT) - rClient Status callback\n";
    expect(kRunning, "true", kRunningText, "SORB_agent_running", "true");
    expect(kRunning, "false", kRunningText, "SORB_agent_running", "false");
    expect("CircleDebug.sorbProvisioned", "true", "(DROAGENT) - sorb provision running Status callback\n",
           "SORB_provisioned", "true");
    expect(kClient, "connected", kClientText, "RCLIENT", "CONNECTED");
    expect(kClient, "Connected", kClientText, "RCLIENT", "DISCONNECTED");
    expect(kClient, "connectedX", kClientText, "RCLIENT", "DISCONNECTED");
}

TEST_F(CircleMonitors, AHealthEventIsTriedThreeTimesAndDropped) {
    set_durations([](dro::Durations& durations) { durations.retryPause = std::chrono::milliseconds(500); });
    EXPECT_EQ(dro::sendClientStatus(nullptr, "true"), 1);
    EXPECT_TRUE(log.has("feature is empty\n", 4));
    EXPECT_EQ(dro::sendClientStatus("RCLIENT", nullptr), 1);
    EXPECT_TRUE(log.has("state is empty\n"));
    EXPECT_TRUE(cloud.requests().empty());
    cloud.script("deviceEvents", {refused()});
    EXPECT_EQ(dro::sendClientStatus("RCLIENT", "CONNECTED"), 1);
    EXPECT_EQ(cloud.requests().size(), 1U) << "a refused one is not tried again";
    cloud.forget();
    cloud.answer_all(empty_answer());
    dro::rClientStatus_cbHandler(nullptr);
    expect_three_attempts(cloud.requests(), std::chrono::steady_clock::now(), false);
    EXPECT_EQ(log.count("(DROAGENT) - No response from DRO Cloud\n"), 3U);
    EXPECT_EQ(log.count_starting("(DROAGENT) - Sleeping for "), 2U);
    EXPECT_TRUE(log.has("(DROAGENT) - response from sendClientStatus is fail\n", 4));
}

}  // namespace
}  // namespace dro_test

// The Circle agent's answers: each order has a monitor that reports what came, or that nothing did.
#include <cerrno>
#include <cstring>

#include "dro_circle.h"
#include "dro_monitor.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* kAnswer = "CircleCfgInternal.activationStatusDROA";
constexpr const char* kToggleAnswer = "CircleCfgInternal.sorbEnableStatusDROA";
constexpr const char* kReportFailed = "Call Circle Status API failed!\n";
constexpr std::chrono::milliseconds kSoon{150};

class CircleMonitors : public AgentTest {
 protected:
    // Subscribes, with this long until an answer is late.
    void start(std::chrono::milliseconds watch) {
        dro::Durations durations = short_durations();
        durations.circleWatch = watch;
        dro::set_durations(durations);
        start_agent();
        dro::circle_cb_subscription();
        store.set_all({{"DroCfg.circle_uuid", "u-1"},
                       {"CircleDebug.errorMessage", "E7"},
                       {"CircleStatus.activationStatus", "provisioned"}});
    }

    static bool waiting(dro::MonitorSignal& signal, int count = 1) {
        return eventually([&] { return signal.waiters() == count; });
    }

    void order(const char* flag, dro::MonitorSignal& signal) {
        store.set("CircleCfgInternal.actionDROA", "activate");
        store.set(flag, "true");
        ASSERT_TRUE(waiting(signal)) << flag;
    }
    void order_activation() { order("DroStatus.CircleAct", dro::activationResponse); }
    void order_provisioning() { order("DroStatus.CircleProvision", dro::provisionResponse); }
    void order_toggle(const char* uuid, int waiters = 1) {
        store.set("CircleStatus.sorbStatus", "none");
        dro::toggle_circle(uuid, dro::JsonText(strdup(R"({"toggle":"on"})")));
        ASSERT_TRUE(waiting(dro::circleToggleResponse, waiters));
    }

    static bool over() {
        return eventually([] { return dro::active_monitors() == 0; });
    }

    // Acknowledgements so far, sorted: two monitors may report in either order.
    Texts acks() const {
        Texts all = acknowledgements(0);
        std::sort(all.begin(), all.end());
        return all;
    }
};

TEST_F(CircleMonitors, ReportTheAgentsAnswer) {
    struct Case {
        bool provisioning;
        const char* answer;
        Texts acks;
        std::size_t uuidReports;
        const char* actAfter;
        const char* message;
    };
    start(kPatience);
    for (const Case& c : {Case{false, "activated", {}, 1, "true", "Success-Activated"},
                          {false, "activatedNow", {}, 1, "true", "Success-Activated"},
                          {false, "deactivated", {"u-1 1 Success-Deactivated_E7"}, 0, "false", "Success-Deactivated"},
                          {false, "failed", {"u-1 0 Activation-Failed_E7"}, 0, "false", "Fail-Activation Failed"},
                          {true, "provisioned", {"u-1 1 Success-Provisioned_E7"}, 0, "false", "Success-Provisioned"},
                          {true, "failed", {"u-1 0 Provision-Failed_E7"}, 0, "false", "FAIL-Provision failed"}}) {
        cloud.forget();
        log.forget();
        store.set("DroStatus.CircleAct", "false");
        c.provisioning ? order_provisioning() : order_activation();
        store.set(kAnswer, c.answer);
        ASSERT_TRUE(over()) << c.answer;
        EXPECT_EQ(acks(), c.acks) << c.answer;
        EXPECT_EQ(cloud.requests("pc/circle/cuuid").size(), c.uuidReports) << c.answer;
        EXPECT_TRUE(log.has(std::string("message = ") + c.message + "\n")) << c.answer;
        EXPECT_EQ(store.get("DroStatus.CircleAct"), c.actAfter) << c.answer;
        EXPECT_EQ(store.get("DroStatus.CircleProvision"), "false") << c.answer;
        EXPECT_EQ(store.get(kAnswer), "none") << c.answer;
        EXPECT_EQ(store.get("CircleCfgInternal.actionDROA"), c.provisioning ? "activate" : "none") << c.answer;
        EXPECT_TRUE(log.wait_for("ActivationStatusDROA field set to none\n")) << "the reset's notice";
    }
    EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), "PROVISION");
    EXPECT_EQ(store.get("DALHConfig.ProcessID"), "1") << "a list follows a provisioning";
    EXPECT_TRUE(log.in_order({"Provision callback\n", "Circle Provision Monitoring Thread Started!\n",
                              "LastCircleTransUUID is u-1\n", "Circle Activation Status callback\n"}));
}

TEST_F(CircleMonitors, AreWokenWithTheTextsThatSupportKnows) {
    struct Case {
        const char* answer;
        const char* flag;  // the open order
        const char* logged;
    };
    constexpr const char* kIdle = "ActivationStatusDROA field set to none\n";
    constexpr const char* kDone =
        "Circle is Being Activated or deactivated, sending Thread Signal to Provisioning thread\n";
    for (const Case& c :
         {Case{"provisioned", "", "Circle is Being Provisioned, sending Thread Signal to Provisioning thread\n"},
          {"activated", "", kDone},
          {"deactivated", "", kDone},
          {"fail", "DroStatus.CircleAct",
           "Circle Activation Sequences Failed, sending Thread Signal to Provisioning thread to report error\n"},
          {"fail", "DroStatus.CircleProvision",
           "Circle Provisioning Sequences Failed, sending Thread Signal to Activation thread to report error\n"},
          {"fail", "", kIdle},
          {"Activated", "", kIdle},
          {"none", "", kIdle}}) {
        log.forget();
        store.set_all({{"DroStatus.CircleAct", "false"}, {"DroStatus.CircleProvision", "false"}, {kAnswer, c.answer}});
        if (*c.flag != '\0') {
            store.set(c.flag, "true");
        }
        dro::activationStatus_cbHandler(nullptr);
        EXPECT_TRUE(log.in_order({"Circle Activation Status callback\n", c.logged})) << c.answer;
        EXPECT_EQ(log.lines().size(), 2U) << c.answer;
    }
}

TEST_F(CircleMonitors, ReportSilence) {
    start(kSoon);
    order_activation();
    EXPECT_EQ(acknowledgements(1), Texts{"u-1 0 Activation-Failed_FAIL-Error TimeOut"});
    ASSERT_TRUE(over());
    EXPECT_EQ(store.get("DroStatus.CircleAct"), "false");
    EXPECT_EQ(store.get("CircleCfgInternal.actionDROA"), "none");
    EXPECT_TRUE(log.in_order({"Circle Activation callback\n", "Circle Activation Monitoring Thread Started!\n",
                              "actionDROA field cleaned up and reset to none ....\n"}));
    cloud.forget();
    order_provisioning();
    EXPECT_EQ(acknowledgements(1), Texts{"u-1 0 Provision-Failed_FAIL-Error TimeOut"});
    ASSERT_TRUE(over());
    cloud.forget();
    order_toggle("u-2");
    EXPECT_EQ(acknowledgements(1), Texts{"u-2 0 Fail-Error timeout"});
    ASSERT_TRUE(over());
    EXPECT_EQ(store.get("DroStatus.CircleToggle"), "false");
    EXPECT_EQ(store.get(kToggleAnswer), "none");
    EXPECT_TRUE(log.has("Circle Toggle request timeout reached\n"));
}

TEST_F(CircleMonitors, LoseAnEarlyAnswer) {
    start(kSoon);
    store.set(kAnswer, "activated");
    ASSERT_TRUE(
        log.wait_for("Circle is Being Activated or deactivated, sending Thread Signal to Provisioning thread\n"));
    order_activation();
    EXPECT_EQ(acknowledgements(1), Texts{"u-1 0 Activation-Failed_FAIL-Error TimeOut"});
    ASSERT_TRUE(over());
    EXPECT_TRUE(cloud.requests("pc/circle/cuuid").empty());
}

TEST_F(CircleMonitors, ReportAnAnswerOnceThatIsGivenTwice) {
    start(kPatience);
    cloud.script("pc/circle/cuuid", {stall()});
    order_activation();
    store.set(kAnswer, "activated");
    ASSERT_EQ(cloud.wait_for(1).size(), 1U);
    store.set(kAnswer, "activated");
    store.set("DroStatus.CircleAct", "true");  // the same order seen again
    ASSERT_TRUE(log.wait_for("Circle Activation Status callback\n", 2));
    cloud.release();
    ASSERT_TRUE(over());
    EXPECT_EQ(cloud.requests().size(), 1U);
    EXPECT_EQ(log.count("Circle Activation Monitoring Thread Started!\n"), 1U);
}

TEST_F(CircleMonitors, AFailureGoesToTheActivationWhileThatIsOpen) {
    start(std::chrono::milliseconds(600));
    order_activation();
    order_provisioning();
    store.set(kAnswer, "fail");
    EXPECT_EQ(acknowledgements(1), Texts{"u-1 0 Activation-Failed_E7"});
    ASSERT_TRUE(over());
    EXPECT_EQ(acknowledgements(2), (Texts{"u-1 0 Activation-Failed_E7", "u-1 0 Provision-Failed_FAIL-Error TimeOut"}));
    EXPECT_TRUE(
        log.has("Circle Activation Sequences Failed, sending Thread Signal to Provisioning thread to report error\n"));
}

// ---- Toggle ----

TEST_F(CircleMonitors, ReportHowAToggleWent) {
    struct Case {
        const char* answer;
        const char* ack;
        bool heard;
    };
    start(kPatience);
    for (const Case& c : {Case{"enabled", "u-2 1 Success-Enabled", true},
                          {"disabledX", "u-2 1 Success-Disabled", true},
                          {"fail-now", "u-2 0 Fail-Circle State Toggle Failed", true},
                          {"enabled", "u-2 1 Success-Enabled", false}}) {
        cloud.forget();
        log.forget();
        cloud.answer_all(c.heard ? accepted() : empty_answer());
        order_toggle("u-2");
        store.set(kToggleAnswer, "working");
        ASSERT_TRUE(log.wait_for("sorbEnableStatusDROA field set to none\n")) << "not an answer";
        store.set(kToggleAnswer, c.answer);
        ASSERT_TRUE(over());
        EXPECT_EQ(acks().front(), c.ack);
        EXPECT_EQ(log.has("TransAck API successfull\n"), c.heard) << c.answer;
        EXPECT_EQ(store.get("DroStatus.CircleToggle"), "false");
        EXPECT_EQ(store.get(kToggleAnswer), "none");
        EXPECT_TRUE(log.wait_for("sorbEnableStatusDROA field toggled by DroAgent\n")) << "the reset's notice";
        EXPECT_TRUE(
            log.in_order({"Circle Toggle callback\n", "Circle running state toggle Monitoring Thread Started!\n",
                          "LastCircleTransUUID is u-2\n", "Circle Toggle Status field change callback\n",
                          "Circle Running State is being toggled\n", "CircleToggle Reset to false\n"}));
    }
}

TEST_F(CircleMonitors, OfTwoTogglesTheAnswerWakesOne) {
    start(std::chrono::milliseconds(600));
    order_toggle("u-2");
    order_toggle("u-3", 2);
    store.set(kToggleAnswer, "enabled");
    ASSERT_TRUE(log.wait_for("CircleToggle Reset to false\n"));
    store.set(kToggleAnswer, "enabled");  // no toggle of this program's is outstanding any more
    ASSERT_TRUE(over());
    const Texts all = acks();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_TRUE(all == (Texts{"u-2 0 Fail-Error timeout", "u-3 1 Success-Enabled"}) ||
                all == (Texts{"u-2 1 Success-Enabled", "u-3 0 Fail-Error timeout"}))
        << all[0] << ", " << all[1];
    EXPECT_GE(log.count("sorbEnableStatusDROA field toggled by DroAgent\n"), 1U);
}

// ---- What the system refuses ----

TEST_F(CircleMonitors, ASignalThatFailsIsReportedAtOnce) {
    struct Case {
        const char* answer;
        bool activation;  // which monitor waits
        const char* logged;
        const char* ack;
        bool alsoLogged;   // kReportFailed, though the report was delivered
        const char* late;  // the monitor that was not woken
    };
    constexpr const char* kActivation = "Unable to trigger Circle Activation thread condition\n";
    constexpr const char* kProvision = "Unable to trigger Circle Provision thread condition\n";
    constexpr const char* kActivationLate = "u-1 0 Activation-Failed_FAIL-Error TimeOut";
    constexpr const char* kProvisionLate = "u-1 0 Provision-Failed_FAIL-Error TimeOut";
    start(std::chrono::milliseconds(500));
    for (const Case& c : {Case{"provisioned", false, kProvision,
                               "u-1 0 Provision-Failed_FAIL- System Resource Unavailable", true, kProvisionLate},
                          {"activated", true, kActivation, "u-1 0 Activation-Failed_FAIL- System Resource Unavailable",
                           false, kActivationLate},
                          {"fail", true, kActivation, "u-1 0 Activation-Failed_E7", false, kActivationLate},
                          {"fail", false, kProvision, "u-1 0 Provision-Failed_E7", false, kProvisionLate}}) {
        cloud.forget();
        log.forget();
        store.set("DroStatus.CircleAct", "false");
        c.activation ? order_activation() : order_provisioning();
        const FailCalls fault(Call::condSignal, EAGAIN);
        store.set(kAnswer, c.answer);
        EXPECT_EQ(acknowledgements(1), Texts{c.ack});
        ASSERT_TRUE(over());
        EXPECT_EQ(acknowledgements(2), (Texts{c.ack, c.late}));
        EXPECT_TRUE(log.has(c.logged)) << c.answer;
        EXPECT_EQ(log.has(kReportFailed, 4), c.alsoLogged) << c.answer << c.activation;
        EXPECT_EQ(fault.failed(), 1);
    }
    cloud.forget();
    order_toggle("u-2");
    const FailCalls fault(Call::condSignal, EAGAIN);
    store.set(kToggleAnswer, "enabled");
    ASSERT_TRUE(over());
    EXPECT_EQ(acknowledgements(2), (Texts{"u-1 0 Fail- System Resource Available", "u-2 0 Fail-Error timeout"}));
    EXPECT_TRUE(log.has("Unable to trigger toggle signal, when sorbStatus field is changed\n"));
}

TEST_F(CircleMonitors, AWaitThatFailsIsReportedAndGoesOn) {
    start(kPatience);
    {
        const FailCalls fault(Call::condTimedWait, EINVAL);
        order_activation();
        EXPECT_EQ(acknowledgements(1), Texts{"u-1 0 Activation-Failed_FAIL-System Error Occured"});
        ASSERT_TRUE(waiting(dro::activationResponse));
        store.set(kAnswer, "deactivated");
        ASSERT_TRUE(over());
        EXPECT_EQ(acknowledgements(2).back(), "u-1 1 Success-Deactivated_E7");
    }
    cloud.forget();
    {
        const FailCalls fault(Call::condTimedWait, EINVAL);
        order_provisioning();
        EXPECT_EQ(acknowledgements(1), Texts{"u-1 0 Provision-Failed_FAIL- System Failure occured"});
        ASSERT_TRUE(waiting(dro::provisionResponse));
        store.set(kAnswer, "provisioned");
        ASSERT_TRUE(over());
        EXPECT_EQ(acknowledgements(2).back(), "u-1 1 Success-Provisioned_E7");
    }
    cloud.forget();
    const FailCalls fault(Call::condTimedWait, EINVAL);
    order_toggle("u-2");
    EXPECT_EQ(acknowledgements(1), Texts{"u-2 0 Fail-System Error Occured"});
    ASSERT_TRUE(waiting(dro::circleToggleResponse));
    store.set(kToggleAnswer, "disabled");
    ASSERT_TRUE(over());
    EXPECT_EQ(acknowledgements(2).back(), "u-2 1 Success-Disabled");
}

TEST_F(CircleMonitors, ALockThatFailsEndsTheMonitor) {
    struct Case {
        const char* flag;
        dro::Mutex& mutex;
        const char* logged;  // "": said on standard error only
    };
    start(kPatience);
    for (const Case& c :
         {Case{"DroStatus.CircleAct", dro::mutex_act_lock, "Unable to Lock Activation Mutex\n"},
          {"DroStatus.CircleProvision", dro::mutex_prov_lock, ""},
          {"DroStatus.CircleToggle", dro::mutex_toggle_lock, "Unable to Lock Circle State toggle Mutex\n"}}) {
        log.forget();
        const FailCalls fault(Call::mutexLock, EDEADLK, c.mutex.native());
        ::testing::internal::CaptureStderr();
        store.set(c.flag, "true");
        EXPECT_TRUE(eventually([&] { return fault.failed() == 1; }) && over()) << c.flag;
        EXPECT_TRUE(::testing::internal::GetCapturedStderr().starts_with("pthread_mutex_lock: ")) << c.flag;
        EXPECT_EQ(log.count_starting("Unable to Lock"), *c.logged == '\0' ? 0U : 1U) << c.flag;
        EXPECT_TRUE(*c.logged == '\0' || log.has(c.logged, 4)) << c.flag;
        EXPECT_EQ(store.get(c.flag), "true") << "nothing is put back";
    }
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(CircleMonitors, ShutdownPutsTheFieldsBackWithoutAReport) {
    start(kPatience);
    order_activation();
    order_provisioning();
    order_toggle("u-2");
    dro::stop_monitors();
    ASSERT_TRUE(over());
    EXPECT_EQ(store.get("CircleCfgInternal.actionDROA"), "none");
    EXPECT_EQ(store.get("DroStatus.CircleProvision"), "false");
    EXPECT_EQ(store.get("DroStatus.CircleToggle"), "false");
    EXPECT_TRUE(cloud.requests().empty());
}

// ---- Health ----

TEST_F(CircleMonitors, TheAgentsHealthReachesTheCloud) {
    struct Case {
        const char* field;
        const char* value;
        const char* logged;
        const char* feature;
        const char* state;
    };
    constexpr const char* kClient = "(DROAGENT) - rClient Status callback\n";
    constexpr const char* kRunning = "(DROAGENT) - circle Agent running Status callback\n";
    constexpr const char* kProvisioned = "(DROAGENT) - sorb provision running Status callback\n";
    start(kPatience);
    for (const Case& c : {Case{"sorbAgentRunning", "true", kRunning, "SORB_agent_running", "true"},
                          {"sorbAgentRunning", "false", kRunning, "SORB_agent_running", "false"},
                          {"sorbProvisioned", "true", kProvisioned, "SORB_provisioned", "true"},
                          {"rClientStatus", "connected", kClient, "RCLIENT", "CONNECTED"},
                          {"rClientStatus", "Connected", kClient, "RCLIENT", "DISCONNECTED"},
                          {"rClientStatus", "connectedX", kClient, "RCLIENT", "DISCONNECTED"},
                          {"rClientStatus", "", kClient, "RCLIENT", "DISCONNECTED"}}) {
        cloud.forget();
        log.forget();
        store.set(std::string("CircleDebug.") + c.field, c.value);
        ASSERT_TRUE(log.wait_for("R_CLIENT_API call Successful\n\n")) << c.field;
        EXPECT_TRUE(log.has(c.logged, 1));
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].path, "/deviceEvents");
        const std::string& body = requests[0].body;
        EXPECT_EQ(body, "{\n\t\"token\":\t\"" + json_value(body, "token") + "\",\n\t\"ePOCHTimeStamp\":\t\"" +
                            json_value(body, "ePOCHTimeStamp") +
                            "\",\n\t\"modelNumber\":\t\"RX-1\",\n\t\"serialNumber\":\t\"FSN0123456789\",\n\t"
                            "\"fwVersion\":\t\"7.8.9\",\n\t\"jorvDeviceId\":\t\"jorv-1\",\n\t\"feature\":\t\"" +
                            c.feature + "\",\n\t\"state\":\t\"" + c.state + "\"\n}");
        EXPECT_EQ(json_value(body, "token").size(), 64U);
        EXPECT_TRUE(log.has("(DROAGENT) - Payload for Client Status is " + body + "\n"));
    }
}

TEST_F(CircleMonitors, AHealthEventIsTriedThreeTimesAndDropped) {
    dro::Durations durations = short_durations();
    durations.retryPause = std::chrono::milliseconds(300);
    dro::set_durations(durations);
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
    const auto end = std::chrono::steady_clock::now();
    const auto requests = cloud.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].body, requests[2].body);
    EXPECT_GE(requests[1].at - requests[0].at, durations.retryPause);
    EXPECT_GE(requests[2].at - requests[1].at, durations.retryPause);
    EXPECT_LT(end - requests[2].at, durations.retryPause) << "no pause after the last";
    EXPECT_EQ(log.count("(DROAGENT) - No response from DRO Cloud\n"), 3U);
    EXPECT_EQ(log.count_starting("(DROAGENT) - Sleeping for "), 2U);
    EXPECT_TRUE(log.has("(DROAGENT) - response from sendClientStatus is fail\n", 4));
}

}  // namespace
}  // namespace dro_test

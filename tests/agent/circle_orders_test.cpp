// Orders to the Circle service: what is refused and how, what is written for the Circle agent, and what is reported.
#include <cstring>

#include "dro_circle.h"
#include "dro_main.h"
#include "pipeline.h"

namespace dro_test {
namespace {

using Writes = std::vector<std::string>;
using Settings = std::vector<std::pair<std::string, std::string>>;

dro::JsonText data_text(const std::string& text) {
    return dro::JsonText(text.empty() ? nullptr : strdup(text.c_str()));
}

class CircleOrders : public AgentTest {
 protected:
    void apply(const Settings& settings) {
        for (const auto& [address, value] : settings) {
            store.set(address, value);
        }
    }

    // What became of one order: its acknowledgements, and no other request.
    std::vector<std::string> answered() {
        const std::size_t all = cloud.requests().size();
        auto acks = acknowledgements(0);
        EXPECT_EQ(acks.size(), all);
        cloud.forget();
        return acks;
    }
};

// ---- Activation and deactivation ----

TEST_F(CircleOrders, AnActivationIsWrittenForTheAgentOrRefused) {
    const auto order = [](const std::string& action, const std::string& uuid) {
        return Writes{"DroStatus.CircleAct=false", "CircleCfgInternal.actionDROA=" + action,
                      "DroCfg.circle_uuid=" + uuid, "DroStatus.CircleAct=true", "DroStatus.CircleProvision=false"};
    };
    const Writes nothing{"DroStatus.CircleAct=false", "DroStatus.CircleProvision=false"};
    const Writes failed{"DroStatus.CircleAct=false", "CircleCfgInternal.actionDROA=activate",
                        "DroStatus.CircleProvision=false"};
    constexpr const char* kBusy = "u-2 0 Earlier SORB activation request already in progress";
    struct Case {
        const char* command;
        const char* uuid;
        bool overRide;
        Settings settings;
        bool storeFails;
        Writes writes;
        std::vector<std::string> acks;
    };
    const std::vector<Case> cases{
        {"ACTIVATE_CIRCLE", "u-2", false, {}, false, order("activate", "u-2"), {}},
        {"DEACTIVATE_CIRCLE", "u-2", false, {}, false, order("deactivate", "u-2"), {}},
        {"ACTIVATE_CIRCLE", "u-1", true, {}, false, order("activate", "u-1"), {}},
        {"ACTIVATE_CIRCLE", "u-1", false, {{"CircleCfg.cuuid", ""}}, false, order("activate", "u-1"), {}},
        {"ACTIVATE_CIRCLE",
         "u-2",
         false,
         {{"CircleDebug.sorbActivationProgress", "inProgress"}},
         false,
         nothing,
         {kBusy}},
        {"DEACTIVATE_CIRCLE",
         "u-2",
         false,
         {{"CircleDebug.sorbActivationProgress", "inProgress"}},
         false,
         order("deactivate", "u-2"),
         {}},
        {"ACTIVATE_CIRCLE",
         "u-2",
         false,
         {{"CircleDebug.sorbActivationProgress", "inprogress"}},
         false,
         order("activate", "u-2"),
         {}},
        {"ACTIVATE_CIRCLE", "u-2", false, {}, true, failed, {"u-2 0 Failed to Set DAL Attr"}},
        {"ACTIVATE_CIRCL", "u-2", false, {}, false, nothing, {}},
    };
    for (const Case& c : cases) {
        store.set_all({{"DroCfg.circle_uuid", "u-1"},
                       {"CircleCfg.cuuid", "device-1"},
                       {"CircleDebug.sorbActivationProgress", "none"}});
        apply(c.settings);
        StoreSpy spy;
        if (c.storeFails) {
            spy.fail("CircleCfgInternal.actionDROA", HAB_TIMEOUT);
        }
        dro::circle_action(c.uuid, c.command, c.overRide);
        EXPECT_EQ(spy.writes(), c.writes) << c.command << " " << c.uuid;
        EXPECT_EQ(answered(), c.acks) << c.command << " " << c.uuid;
    }
}

TEST_F(CircleOrders, ARepeatOfADoneActivationIsAnsweredAsDone) {
    store.set_all({{"DroCfg.circle_uuid", "u-1"}, {"CircleCfg.cuuid", "device-1"}});
    for (const char* command : {"ACTIVATE_CIRCLE", "DEACTIVATE_CIRCLE"}) {
        cloud.forget();
        const StoreSpy spy;
        dro::circle_action("u-1", command, false);
        EXPECT_EQ(acknowledgements(1), std::vector<std::string>{"u-1 1 Already Activated"});
        const auto reports = cloud.requests("pc/circle/cuuid");
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(after_signature(reports[0].body), R"(,"uuid":"u-1","circleUUID":"device-1"})");
        EXPECT_EQ(spy.writes(),
                  (Writes{"DroStatus.CircleProvision=false", "CircleCfgInternal.activationStatusDROA=none",
                          "DroStatus.CircleProvision=false"}));
        EXPECT_TRUE(log.has("message = Success-Already Activated\n"));
    }
    cloud.script("pc/circle/cuuid", {empty_answer(), empty_answer(), empty_answer()});
    dro::circle_action("u-1", "ACTIVATE_CIRCLE", false);
    EXPECT_TRUE(log.has("Call Circle Status API failed!\n", 4));
}

TEST_F(CircleOrders, TheDeviceUuidIsReportedUntilItIsHeard) {
    struct Case {
        std::vector<Answer> answers;
        int result;
        std::size_t requests;
        Writes writes;  // before the fields of the order are reset
        const char* logged;
        int level;
    };
    const Writes noted{"CircleDebug.sorbSyncDone=activated"};
    const Writes given_up{"DroStatus.CircleAct=false"};
    constexpr const char* kSilence = "No response from DRO Cloud\n";
    const std::vector<Case> cases{
        {{accepted()}, 0, 1, noted, " API call Successfull\n\n", 1},
        {{refused()}, 0, 1, {}, "\n CIRCLE API Status Failure response\n", 4},
        {{text_answer(R"({"status":2})")}, 0, 1, {}, "No Status code received...\n", 4},
        {{text_answer("{}")}, 0, 1, {}, " Parse input string for key status not found\n", 4},
        {{empty_answer(), hang_up(), accepted()}, 0, 3, noted, kSilence, 4},
        {{empty_answer(), empty_answer(), empty_answer()}, 1, 3, given_up, kSilence, 4},
    };
    for (const Case& c : cases) {
        cloud.forget();
        log.forget();
        cloud.script("pc/circle/cuuid", c.answers);
        store.set("CircleCfgInternal.activationStatusDROA", "activated");
        const StoreSpy spy;
        EXPECT_EQ(dro::sync_circle_status(dro::kStageActivation, dro::kCircleSuccess, "u-1", "Success-Activated"),
                  c.result);
        const auto end = std::chrono::steady_clock::now();
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), c.requests) << c.logged;
        EXPECT_EQ(requests[0].path, "/pc/circle/cuuid");
        EXPECT_EQ(requests.front().body, requests.back().body);
        Writes writes = c.writes;
        writes.insert(writes.end(), {"DroStatus.CircleProvision=false", "CircleCfgInternal.activationStatusDROA=none"});
        EXPECT_EQ(spy.writes(), writes) << c.logged;
        EXPECT_TRUE(log.has(c.logged, c.level)) << c.logged;
        EXPECT_TRUE(c.result == 0 || end - requests.back().at >= short_durations().retryPause);
    }
}

TEST_F(CircleOrders, OutcomesAreReportedInTheAgentsWords) {
    struct Case {
        int stage;
        int result;
        const char* message;
        const char* answer;   // activationStatusDROA
        const char* service;  // activationStatus
        const char* error;
        std::vector<std::string> acks;
        Writes writes;  // before and after the ones of every report
        Writes followUp;
    };
    const std::string act = "DroStatus.CircleAct=false";
    const Writes listSync{"DroStatus.cdilTransUuid=", "DroStatus.cdilsyncAt=PROVISION",  "DILGeneral.CDILTrigger=true",
                          "DALHConfig.FeatureID=8",   "DALHConfig.CDILRequest=occupied", "DALHConfig.ProcessID=1"};
    const std::vector<Case> cases{
        {0, 0, "FAIL-Error TimeOut", "none", "none", "E9", {"u-1 0 Activation-Failed_FAIL-Error TimeOut"}, {act}, {}},
        {0, 0, "Fail-Activation Failed", "failed", "none", "E9", {"u-1 0 Activation-Failed_E9"}, {act}, {}},
        {0,
         0,
         "Fail-Activation Failed",
         "Fail",
         "none",
         "E9",
         {"u-1 0 Activation-Failed_Fail-Activation Failed"},
         {act},
         {}},
        {1,
         1,
         "Success-Deactivated",
         "deactivated",
         "deactivated",
         "",
         {"u-1 1 Success-Deactivated_"},
         {"CircleStatus.sorbStatus=disabled", act},
         {}},
        {1, 1, "Success-Deactivated", "deactivated", "activated", "E9", {"u-1 1 Success-Deactivated_E9"}, {act}, {}},
        {1,
         1,
         "Success-Provisioned",
         "provisioned",
         "deactivated",
         "",
         {"u-1 1 Success-Provisioned_"},
         {"CircleDebug.sorbSyncDone=provisioned", "CircleStatus.sorbStatus=enabled", act},
         listSync},
        {1,
         1,
         "Success-Already Provisioned",
         "none",
         "provisioned",
         "",
         {"u-1 1 Success-Already Provisioned_"},
         {act},
         {}},
        {1,
         0,
         "FAIL-Provision failed",
         "none",
         "none",
         "E9",
         {"u-1 0 Provision-Failed_FAIL-Provision failed"},
         {act},
         {}},
        {1, 0, "FAIL-Provision failed", "failX", "none", "E9", {"u-1 0 Provision-Failed_E9"}, {act}, {}},
        {2, 1, "Success-Provisioned", "none", "none", "", {}, {}, listSync},
    };
    for (const Case& c : cases) {
        store.set_all({{"CircleCfgInternal.activationStatusDROA", c.answer},
                       {"CircleStatus.activationStatus", c.service},
                       {"CircleDebug.errorMessage", c.error}});
        const StoreSpy spy;
        EXPECT_EQ(dro::sync_circle_status(c.stage, c.result, "u-1", c.message), 0);
        EXPECT_EQ(answered(), c.acks);
        Writes writes = c.writes;
        writes.insert(writes.end(), {"DroStatus.CircleProvision=false", "CircleCfgInternal.activationStatusDROA=none"});
        writes.insert(writes.end(), c.followUp.begin(), c.followUp.end());
        EXPECT_EQ(spy.writes(), writes) << c.message << " " << c.answer;
    }
    EXPECT_TRUE(log.has("No Case Matched! for circle Sync\n", 2));
    EXPECT_TRUE(log.has("Func called for circle API sync for Stage 2\n", 1));
    EXPECT_TRUE(log.has("Activation failed, calling TransAck with msg: Activaion-Failed\n"));

    cloud.answer_all(empty_answer());
    store.set("CircleCfgInternal.activationStatusDROA", "provisioned");
    const StoreSpy spy;
    EXPECT_EQ(dro::sync_circle_status(1, 1, "u-1", "Success-Deactivated"), 0);
    EXPECT_TRUE(log.has("TransAck API Failed\n"));
    EXPECT_TRUE(spy.writes("CircleStatus.").empty()) << "an outcome that nobody heard changes no state";
}

// ---- Provisioning ----

// The five credentials, of the lengths given.
std::string credentials(std::size_t id = 5, std::size_t access = 5, std::size_t refresh = 5, std::size_t local = 5,
                        std::size_t host = 5) {
    return R"({"circleId":")" + std::string(id, 'i') + R"(","accessToken":")" + std::string(access, 'a') +
           R"(","refreshToken":")" + std::string(refresh, 'r') + R"(","localToken":")" + std::string(local, 'l') +
           R"(","cloudHost":")" + std::string(host, 'h') + "\"}";
}

TEST_F(CircleOrders, AProvisioningIsRefusedForEachReason) {
    struct Case {
        const char* what;
        Settings settings;
        const char* command;
        std::string data;
        std::vector<std::string> acks;
        const char* logged;
        int level;
        bool ended;  // CircleAct was written false
    };
    constexpr const char* kCommand = "PROVISION_CIRCLE";
    constexpr const char* kRunning = "u-2 1 Success: Provision running";
    constexpr const char* kDone = "Set DROSTATUS Thread to true\n";
    const std::vector<Case> cases{
        {"busy",
         {{"CircleDebug.sorbActivationProgress", "inProgress"}},
         kCommand,
         credentials(),
         {"u-2 0 Earlier SORB activation request already in progress"},
         "",
         0,
         false},
        {"no data", {}, kCommand, "", {"u-2 0 Failed to Parse Data Object"}, "", 0, false},
        {"no JSON", {}, kCommand, "{", {"u-2 0 Failed to Parse Data Object"}, "", 0, false},
        {"no id", {}, kCommand, "{}", {"u-2 0 Invalid Argument circleId"}, "Circle Id is not present!\n", 2, false},
        {"a number",
         {},
         kCommand,
         R"({"circleId":"i","accessToken":1})",
         {"u-2 0 Invalid Argument AccessToken"},
         "accessToken is not present!\n",
         2,
         false},
        {"another case",
         {},
         kCommand,
         R"({"circleId":"i","accessToken":"a","RefreshToken":"r"})",
         {"u-2 0 Invalid Argument refreshToken"},
         "refreshToken is not present!\n",
         2,
         false},
        {"no local token",
         {},
         kCommand,
         R"({"circleId":"i","accessToken":"a","refreshToken":"r"})",
         {"u-2 0 Invalid Argument localToken"},
         "localToken is not present!\n",
         2,
         false},
        {"no host",
         {},
         kCommand,
         R"({"circleId":"i","accessToken":"a","refreshToken":"r","localToken":"l"})",
         {"u-2 0 Invalid Argument cloudHost"},
         "cloudHost is not present!\n",
         2,
         false},
        {"longest", {}, kCommand, credentials(127, 4095, 2047, 2047, 63), {kRunning}, kDone, 1, true},
        {"empty", {}, kCommand, credentials(0, 0, 0, 0, 0), {kRunning}, kDone, 1, true},
        {"long id", {}, kCommand, credentials(128), {}, "Overflow of circleId buffer\n", 4, false},
        {"long access", {}, kCommand, credentials(5, 4096), {}, "Overflow of AccessToken buffer\n", 4, false},
        {"long refresh", {}, kCommand, credentials(5, 5, 2048), {}, "Overflow of refreshToken buffer\n", 4, false},
        {"long local", {}, kCommand, credentials(5, 5, 5, 2048), {}, "Overflow of localToken buffer\n", 4, false},
        {"long host", {}, kCommand, credentials(5, 5, 5, 5, 64), {}, "Overflow of cloudHost buffer\n", 4, false},
        {"not activated",
         {{"DroStatus.CircleAct", "false"}},
         kCommand,
         credentials(),
         {"u-2 0 Invalid Operation, Circle Action was not initiated"},
         "Check if this is a legit call\n",
         1,
         true},
        {"another command",
         {},
         "PROVISION_CIRCLES",
         credentials(),
         {"u-2 0 Invalid Command for Provision"},
         "Check if this is a legit call\n",
         1,
         true},
        {"activated by this transaction, provisioned already",
         {{"DroCfg.circle_uuid", "u-2"}, {"CircleStatus.activationStatus", "provisioned"}},
         kCommand,
         "{",
         {"u-2 1 Already Provisioned", "u-2 1 Success-Already Provisioned_"},
         "message = Success-Already Provisioned\n",
         1,
         true},
        {"activated by another, provisioned already",
         {{"CircleStatus.activationStatus", "provisioned"}},
         kCommand,
         credentials(),
         {kRunning},
         kDone,
         1,
         true},
    };
    for (const Case& c : cases) {
        log.forget();
        store.set_all({{"DroCfg.circle_uuid", "u-1"},
                       {"DroStatus.CircleAct", "true"},
                       {"CircleStatus.activationStatus", "activated"},
                       {"CircleDebug.sorbActivationProgress", "none"}});
        apply(c.settings);
        const StoreSpy spy;
        dro::circle_provision("u-2", c.command, data_text(c.data));
        EXPECT_EQ(answered(), c.acks) << c.what;
        EXPECT_TRUE(*c.logged == '\0' || log.has(c.logged, c.level)) << c.what;
        EXPECT_EQ(!spy.writes("DroStatus.CircleAct=false").empty(), c.ended) << c.what;
        const bool ordered = c.acks == std::vector<std::string>{kRunning};
        EXPECT_EQ(!spy.writes("CircleCfgInternal.actionDROA=provision").empty(), ordered) << c.what;
        EXPECT_EQ(spy.writes("CircleCfg.").size(), ordered ? 5U : 0U) << c.what;
    }
}

TEST_F(CircleOrders, AProvisioningIsWrittenInItsOrderUntilAWriteFails) {
    const Writes order{"CircleCfg.accessToken=aaaaa",    "CircleCfg.refreshToken=rrrrr",
                       "CircleCfg.localToken=lllll",     "CircleCfg.cloudhost=hhhhh",
                       "CircleCfg.circleId=iiiii",       "CircleCfgInternal.actionDROA=provision",
                       "DroStatus.CircleProvision=true", "DroStatus.CircleAct=false"};
    struct Case {
        const char* failing;
        std::size_t written;  // of the order, the failed one included
        const char* reason;
    };
    for (const Case& c : {Case{"", 7, "1 Success: Provision running"},
                          {"CircleCfg.accessToken", 1, "0 Failed to Set DAL Attr accessToken"},
                          {"CircleCfg.refreshToken", 2, "0 Failed to Set DAL Attr refreshToken"},
                          {"CircleCfg.localToken", 3, "0 Failed to Set DAL Attr localToken"},
                          {"CircleCfg.cloudhost", 4, "0 Failed to Set DAL Attr cloudhost"},
                          {"CircleCfg.circleId", 5, "0 Failed to Set DAL Attr circleId"},
                          {"CircleCfgInternal.actionDROA", 7, "1 Success: Provision running"},
                          {"DroStatus.CircleProvision", 7, "0 Failed to Set DAL Attr action"}}) {
        store.set("DroStatus.CircleAct", "true");
        StoreSpy spy;
        spy.fail(c.failing, HAB_TIMEOUT);
        dro::circle_provision("u-2", "PROVISION_CIRCLE", data_text(credentials()));
        Writes expected(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(c.written));
        expected.push_back(order.back());
        EXPECT_EQ(spy.writes(), expected) << c.failing;
        EXPECT_EQ(answered(), std::vector<std::string>{std::string("u-2 ") + c.reason}) << c.failing;
    }
}

TEST_F(CircleOrders, CredentialsAreLoggedOnlyAsPartOfTheWholeMessage) {
    store.set("DroStatus.CircleAct", "true");
    const std::string message = envelope("u-2", "PROVISION_CIRCLE", credentials());
    dro::JorvAgentNotification_cbHandler(message.c_str());
    EXPECT_EQ(answered(), std::vector<std::string>{"u-2 1 Success: Provision running"});
    std::size_t whole = 0;
    for (const LogLine& line : log.lines()) {
        whole += line.message.find(message) != std::string::npos ? 1U : 0U;
        for (const char* secret : {"aaaaa", "rrrrr", "lllll"}) {
            EXPECT_EQ(line.message.find(secret) != std::string::npos, line.message.find(message) != std::string::npos)
                << line.message;
        }
    }
    EXPECT_GE(whole, 1U);
}

// ---- Switching on and off ----

TEST_F(CircleOrders, AToggleIsWrittenForTheAgentOrAnsweredAtOnce) {
    struct Case {
        const char* service;
        const char* running;
        const char* uuid;
        const char* data;
        std::vector<std::string> acks;
        const char* ordered;  // "": no order
        const char* logged;
        int level;
    };
    constexpr const char* kOn = R"({"toggle":"on"})";
    constexpr const char* kOff = R"({"toggle":"off"})";
    constexpr const char* kBad = "u-2 0 Error in circle toggle state message";
    const std::vector<Case> cases{
        {"activated", "disabled", "u-2", kOn, {"u-2 0 Invalid request"}, "", "", 0},
        {"provisionedX", "disabled", "u-2", kOn, {"u-2 0 Invalid request"}, "", "", 0},
        {"provisioned", "enabled", "u-1", kOff, {"u-1 1 Already enabled"}, "", "", 0},
        {"provisioned", "disabled", "u-1", "", {"u-1 1 Already disabled"}, "", "", 0},
        {"provisioned", "none", "u-1", kOn, {}, "", "", 0},
        {"provisioned", "none", "u-2", "", {kBad}, "", "Failed to Parse Data Object\n", 4},
        {"provisioned", "none", "u-2", "{", {kBad}, "", "Failed to Parse Data Object\n", 4},
        {"provisioned", "none", "u-2", "{}", {kBad}, "", "Circle toggle state not present\n", 2},
        {"provisioned", "none", "u-2", R"({"toggle":true})", {kBad}, "", "Circle toggle state not present\n", 2},
        {"provisioned",
         "none",
         "u-2",
         R"({"toggle":"12345678"})",
         {kBad},
         "",
         "Overflow of received toggle state buffer\n",
         4},
        {"provisioned",
         "none",
         "u-2",
         R"({"toggle":"1234567"})",
         {"u-2 0 Invalid toggle request"},
         "",
         "Toggle State received: 1234567\n",
         1},
        {"provisioned", "none", "u-2", R"({"toggle":"ON"})", {"u-2 0 Invalid toggle request"}, "", "", 0},
        {"provisioned", "none", "u-2", R"({"toggle":""})", {"u-2 0 Invalid toggle request"}, "", "", 0},
        {"provisioned", "enabled", "u-2", kOn, {"u-2 1 Success-Enabled"}, "", "", 0},
        {"provisioned", "disabled", "u-2", kOff, {"u-2 1 Success-Disabled"}, "", "", 0},
        {"provisioned", "disabled", "u-2", kOn, {}, "enable", "Toggle State received: on\n", 1},
        {"provisioned", "enabled", "u-2", kOff, {}, "disable", "Toggle circle running state request\n", 1},
        {"provisioned", "none", "u-2", kOff, {}, "disable", "", 0},
    };
    store.set("DroCfg.circle_uuid", "u-1");
    for (const Case& c : cases) {
        log.forget();
        store.set_all({{"CircleStatus.activationStatus", c.service}, {"CircleStatus.sorbStatus", c.running}});
        const StoreSpy spy;
        dro::toggle_circle(c.uuid, data_text(c.data));
        const std::string shown = std::string(c.service) + " " + c.running + " " + c.uuid + " " + c.data;
        EXPECT_EQ(answered(), c.acks) << shown;
        EXPECT_TRUE(*c.logged == '\0' || log.has(c.logged, c.level)) << shown;
        EXPECT_EQ(spy.writes(), *c.ordered == '\0'
                                    ? Writes{}
                                    : (Writes{std::string("CircleCfgInternal.sorbEnableState=") + c.ordered,
                                              "DroCfg.circle_toggle_uuid=u-2", "DroStatus.CircleToggle=true"}))
            << shown;
    }
    {
        StoreSpy spy;
        spy.fail("CircleCfgInternal.sorbEnableState", HAB_TIMEOUT);
        dro::toggle_circle("u-2", data_text(kOff));
        EXPECT_EQ(answered(), std::vector<std::string>{"u-2 0 Failed to Set DAL Attr sorbEnableState"});
        EXPECT_EQ(spy.writes().size(), 1U);
    }
    cloud.answer_all(empty_answer());
    store.set("CircleStatus.sorbStatus", "enabled");
    const StoreSpy spy;
    dro::toggle_circle("u-2", data_text(kOn));
    EXPECT_EQ(spy.writes(), Writes{"DroStatus.CircleToggle=false"}) << "nobody heard that there was nothing to do";
}

}  // namespace
}  // namespace dro_test

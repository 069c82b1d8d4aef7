// The Circle service: refused orders, the values written for the Circle agent, the acknowledgements, and health reports
// to the cloud.
#include <array>
#include <cstring>
#include <functional>

#include "dro_circle.h"
#include "dro_main.h"
#include "pipeline.h"

namespace dro_test {
namespace {

using Settings = std::vector<std::pair<std::string, std::string>>;

constexpr const char* kNoAcknowledgement = "another request";
constexpr const char* kAct = "DroStatus.CircleAct=false";
constexpr const char* kProvisionOff = "DroStatus.CircleProvision=false";
constexpr const char* kAnswerOff = "CircleCfgInternal.activationStatusDROA=none";
constexpr const char* kBusy = "u-2 0 Earlier SORB activation request already in progress";

Texts joined(Texts first, const Texts& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class Circle : public AgentTest {
 protected:
    // Checks the writes and acknowledgements of `order` while the field `failing` cannot be written. `reported` ends
    // with one kNoAcknowledgement for each request that is not an acknowledgement.
    void expect_order(const std::function<void()>& order, const Texts& writes, const Texts& reported,
                      const std::string& failing = "") {
        forget();
        StoreSpy spy;
        spy.fail(failing, HAB_TIMEOUT);
        order();
        EXPECT_EQ(spy.writes(), writes);
        Texts all = acknowledgements(0);
        all.resize(cloud.requests().size(), kNoAcknowledgement);
        EXPECT_EQ(all, reported);
    }
    static dro::JsonText data_text(const std::string& text) {
        return dro::JsonText(text.empty() ? nullptr : strdup(text.c_str()));
    }
};

// ---- Activation and deactivation ----

TEST_F(Circle, AnActivationIsWrittenForTheAgentOrRefused) {
    const auto expect = [&](const char* command, const char* uuid, const Settings& settings, const Texts& writes,
                            const Texts& acks, bool overRide = false, const char* failing = "") {
        store.set_all({{"DroCfg.circle_uuid", "u-1"},
                       {"CircleCfg.cuuid", "device-1"},
                       {"CircleDebug.sorbActivationProgress", "none"}});
        store.set_all(settings);
        SCOPED_TRACE(std::string(command) + uuid);
        expect_order([&] { dro::circle_action(uuid, command, overRide); }, writes, acks, failing);
    };
    const auto order = [](const std::string& action, const std::string& uuid) {
        return Texts{kAct, "CircleCfgInternal.actionDROA=" + action, "DroCfg.circle_uuid=" + uuid,
                     "DroStatus.CircleAct=true", kProvisionOff};
    };
    const Texts none{kAct, kProvisionOff};
    const Settings busy{{"CircleDebug.sorbActivationProgress", "inProgress"}};
    expect("ACTIVATE_CIRCLE", "u-2", {}, order("activate", "u-2"), {});
    expect("DEACTIVATE_CIRCLE", "u-2", {}, order("deactivate", "u-2"), {});
    expect("ACTIVATE_CIRCLE", "u-1", {}, order("activate", "u-1"), {}, true);
    expect("ACTIVATE_CIRCLE", "u-1", {{"CircleCfg.cuuid", ""}}, order("activate", "u-1"), {});
    expect("ACTIVATE_CIRCLE", "u-2", busy, none, {kBusy});
    expect("DEACTIVATE_CIRCLE", "u-2", busy, order("deactivate", "u-2"), {});
    expect("ACTIVATE_CIRCLE", "u-2", {}, {kAct, "CircleCfgInternal.actionDROA=activate", kProvisionOff},
           {"u-2 0 Failed to Set DAL Attr"}, false, "CircleCfgInternal.actionDROA");
    expect("ACTIVATE_CIRCL", "u-2", {}, none, {});
    for (const char* command : {"ACTIVATE_CIRCLE", "DEACTIVATE_CIRCLE"}) {  // already done
        expect(command, "u-1", {}, {kProvisionOff, kAnswerOff, kProvisionOff},
               {"u-1 1 Already Activated", kNoAcknowledgement});
        EXPECT_TRUE(log.has("message = Success-Already Activated\n"));
    }
    cloud.script("pc/circle/cuuid", {kEmpty, kEmpty, kEmpty});
    dro::circle_action("u-1", "ACTIVATE_CIRCLE", false);
    EXPECT_TRUE(log.has("Call Circle Status API failed!\n", 4));
}

TEST_F(Circle, TheDeviceUuidIsReportedUntilTheCloudAnswers) {
    const auto expect = [&](const std::vector<Answer>& answers, int result, const Texts& writes, const char* logged,
                            int level) {
        const auto report = [&] {
            cloud.script("pc/circle/cuuid", answers);
            store.set("CircleCfgInternal.activationStatusDROA", "activated");
            EXPECT_EQ(dro::sync_circle_status(0, 1, "u-1", "Success-Activated"), result);
        };
        SCOPED_TRACE(logged);
        expect_order(report, joined(writes, {kProvisionOff, kAnswerOff}), Texts(answers.size(), kNoAcknowledgement));
        EXPECT_EQ(after_signature(cloud.requests().at(0).body), R"(,"uuid":"u-1","circleUUID":"device-1"})");
        EXPECT_TRUE(log.has(logged, level));
    };
    store.set("CircleCfg.cuuid", "device-1");
    const Texts noted{"CircleDebug.sorbSyncDone=activated"};
    constexpr const char* kSilence = "No response from DRO Cloud\n";
    expect({kAccepted}, 0, noted, " API call Successfull\n\n", 1);
    expect({kRefused}, 0, {}, "\n CIRCLE API Status Failure response\n", 4);
    expect({kEmpty, kHangUp, kAccepted}, 0, noted, kSilence, 4);
    expect({kEmpty, kEmpty, kEmpty}, 1, {kAct}, kSilence, 4);
    expect_three_attempts(true);
}

TEST_F(Circle, AnUnansweredOutcomeChangesNoState) {
    EXPECT_EQ(dro::sync_circle_status(2, 1, "u-1", "any"), 0);
    EXPECT_TRUE(log.in_order(
        {"Func called for circle API sync for Stage 2\n", "No Case Matched! for circle Sync\n", "message = any\n"}));
    EXPECT_TRUE(cloud.requests().empty());
    cloud.answer_all(kEmpty);
    store.set("CircleCfgInternal.activationStatusDROA", "provisioned");
    const StoreSpy spy;
    EXPECT_EQ(dro::sync_circle_status(1, 1, "u-1", "Success-Deactivated"), 0);
    EXPECT_TRUE(log.has("TransAck API Failed\n"));
    EXPECT_EQ(spy.writes(), (Texts{kAct, kProvisionOff, kAnswerOff}));
}

// ---- Provisioning ----

constexpr const char* kProvision = "PROVISION_CIRCLE";
constexpr const char* kRunning = "u-2 1 Success: Provision running";

// The five credentials with these lengths.
std::string credentials(const std::array<std::size_t, 5>& lengths = {5, 5, 5, 5, 5}) {
    const auto [id, access, refresh, local, host] = lengths;
    return R"({"circleId":")" + std::string(id, 'i') + R"(","accessToken":")" + std::string(access, 'a') +
           R"(","refreshToken":")" + std::string(refresh, 'r') + R"(","localToken":")" + std::string(local, 'l') +
           R"(","cloudHost":")" + std::string(host, 'h') + "\"}";
}

TEST_F(Circle, AProvisioningIsRefusedForEachReason) {
    const auto expect = [&](const std::string& data, const Texts& acks, const std::string& logged, int level,
                            const Texts& writes = {}, const Settings& settings = {}, const char* command = kProvision) {
        store.set_all({{"DroCfg.circle_uuid", "u-1"},
                       {"DroStatus.CircleAct", "true"},
                       {"CircleStatus.activationStatus", "activated"},
                       {"CircleDebug.sorbActivationProgress", "none"}});
        store.set_all(settings);
        SCOPED_TRACE(logged + data.substr(0, 80));
        expect_order([&] { dro::circle_provision("u-2", command, data_text(data)); }, writes, acks);
        EXPECT_TRUE(log.has(logged, level));
    };
    constexpr const char* kChecked = "Check if this is a legit call\n";
    constexpr const char* kAcked = "TRANS-ACK API call Successfull\n\n";
    for (const char* noJson : {"", "{"}) {
        expect(noJson, {"u-2 0 Failed to Parse Data Object"}, kAcked, 1);
    }
    std::string given = "{";
    for (const auto& [name, logged, reason, size] : Cases<std::string, std::string, std::string, std::size_t>{
             {"circleId", "Circle Id", "circleId", 128},
             {"accessToken", "accessToken", "AccessToken", 4096},
             {"refreshToken", "refreshToken", "refreshToken", 2048},
             {"localToken", "localToken", "localToken", 2048},
             {"cloudHost", "cloudHost", "cloudHost", 64}}) {
        const std::string member = given + "\"" + name + "\":";
        expect(member + "1}", {"u-2 0 Invalid Argument " + reason}, logged + " is not present!\n", 2);
        expect(member + "\"" + std::string(size, 'x') + "\"}", {}, "Overflow of " + reason + " buffer\n", 4);
        given = member + "\"\",";
    }
    expect(credentials(), {kBusy}, kAcked, 1, {}, {{"CircleDebug.sorbActivationProgress", "inProgress"}});
    expect(credentials(), {"u-2 0 Invalid Operation, Circle Action was not initiated"}, kChecked, 1, {kAct},
           {{"DroStatus.CircleAct", "false"}});
    expect(credentials(), {"u-2 0 Invalid Command for Provision"}, kChecked, 1, {kAct}, {}, "PROVISION_CIRCLES");
    expect("{", {"u-2 1 Already Provisioned", "u-2 1 Success-Already Provisioned_"},
           "message = Success-Already Provisioned\n", 1, {kAct, kProvisionOff, kAnswerOff},
           {{"DroCfg.circle_uuid", "u-2"}, {"CircleStatus.activationStatus", "provisioned"}});
}

TEST_F(Circle, AProvisioningIsWrittenInItsOrderUntilAWriteFails) {
    // `upTo`: number of the order's writes, including the failed one. `lengths`: as for credentials().
    const auto expect = [&](const std::string& failing, int upTo, const std::string& answer,
                            const std::array<std::size_t, 5>& lengths = {5, 5, 5, 5, 5}) {
        // A service that another activation has provisioned does not block the order.
        store.set_all({{"DroStatus.CircleAct", "true"}, {"CircleStatus.activationStatus", "provisioned"}});
        const auto [id, access, refresh, local, host] = lengths;
        const Texts order{"CircleCfg.accessToken=" + std::string(access, 'a'),
                          "CircleCfg.refreshToken=" + std::string(refresh, 'r'),
                          "CircleCfg.localToken=" + std::string(local, 'l'),
                          "CircleCfg.cloudhost=" + std::string(host, 'h'),
                          "CircleCfg.circleId=" + std::string(id, 'i'),
                          "CircleCfgInternal.actionDROA=provision",
                          "DroStatus.CircleProvision=true"};
        SCOPED_TRACE(failing);
        expect_order([&] { dro::circle_provision("u-2", kProvision, data_text(credentials(lengths))); },
                     joined(Texts(order.begin(), order.begin() + upTo), {kAct}), {answer}, failing);
        EXPECT_EQ(log.has("Set DROSTATUS Thread to true\n", 1), answer == kRunning);
    };
    expect("", 7, kRunning);
    expect("", 7, kRunning, {127, 4095, 2047, 2047, 63});
    expect("", 7, kRunning, {});
    int written = 0;
    for (const std::string field : {"accessToken", "refreshToken", "localToken", "cloudhost", "circleId"}) {
        expect("CircleCfg." + field, ++written, "u-2 0 Failed to Set DAL Attr " + field);
    }
    expect("CircleCfgInternal.actionDROA", 7, kRunning);
    expect("DroStatus.CircleProvision", 7, "u-2 0 Failed to Set DAL Attr action");
}

TEST_F(Circle, CredentialsAreLoggedOnlyAsPartOfTheWholeMessage) {
    store.set("DroStatus.CircleAct", "true");
    const std::string message = envelope("u-2", kProvision, credentials());
    dro::JorvAgentNotification_cbHandler(message.c_str());
    EXPECT_EQ(acknowledgements(1), Texts{kRunning});
    std::size_t whole = 0;
    for (const std::string& text : log.texts()) {
        const bool isWhole = text.find(message) != std::string::npos;
        whole += isWhole ? 1 : 0;
        for (const char* secret : {"aaaaa", "rrrrr", "lllll"}) {
            EXPECT_EQ(text.find(secret) != std::string::npos, isWhole) << text;
        }
    }
    EXPECT_GE(whole, 1U);
}

// ---- Switching on and off ----

TEST_F(Circle, AToggleIsWrittenForTheAgentOrAnsweredAtOnce) {
    const auto expect = [&](const char* running, const char* uuid, const std::string& data, const Texts& acks,
                            const Texts& writes, const char* logged, int level, const char* service = "provisioned",
                            const char* failing = "") {
        store.set_all({{"CircleStatus.activationStatus", service}, {"CircleStatus.sorbStatus", running}});
        SCOPED_TRACE(std::string(running) + uuid + data + logged);
        expect_order([&] { dro::toggle_circle(uuid, data_text(data)); }, writes, acks, failing);
        EXPECT_TRUE(log.has(logged, level));
    };
    constexpr const char* kOn = R"({"toggle":"on"})";
    constexpr const char* kOff = R"({"toggle":"off"})";
    constexpr const char* kBad = "u-2 0 Error in circle toggle state message";
    constexpr const char* kAsked = "Toggle circle running state request\n";
    const std::string ordered = "CircleCfgInternal.sorbEnableState=";
    const Texts marked{"DroCfg.circle_toggle_uuid=u-2", "DroStatus.CircleToggle=true"};
    store.set("DroCfg.circle_uuid", "u-1");
    expect("disabled", "u-2", kOn, {"u-2 0 Invalid request"}, {}, kAsked, 1, "provisionedX");
    expect("enabled", "u-1", kOff, {"u-1 1 Already enabled"}, {}, kAsked, 1);
    expect("disabled", "u-1", "", {"u-1 1 Already disabled"}, {}, kAsked, 1);
    expect("none", "u-1", kOn, {}, {}, kAsked, 1);
    expect("none", "u-2", "", {kBad}, {}, "Failed to Parse Data Object\n", 4);
    expect("none", "u-2", "{", {kBad}, {}, "Failed to Parse Data Object\n", 4);
    expect("none", "u-2", "{}", {kBad}, {}, "Circle toggle state not present\n", 2);
    expect("none", "u-2", R"({"toggle":true})", {kBad}, {}, "Circle toggle state not present\n", 2);
    expect("none", "u-2", R"({"toggle":"12345678"})", {kBad}, {}, "Overflow of received toggle state buffer\n", 4);
    expect("none", "u-2", R"({"toggle":"1234567"})", {"u-2 0 Invalid toggle request"}, {},
           "Toggle State received: 1234567\n", 1);
    expect("enabled", "u-2", kOn, {"u-2 1 Success-Enabled"}, {}, "Toggle State received: on\n", 1);
    expect("disabled", "u-2", kOff, {"u-2 1 Success-Disabled"}, {}, "Toggle State received: off\n", 1);
    expect("disabled", "u-2", kOn, {}, joined({ordered + "enable"}, marked), kAsked, 1);
    expect("enabled", "u-2", kOff, {}, joined({ordered + "disable"}, marked), kAsked, 1);
    expect("none", "u-2", kOff, {}, joined({ordered + "disable"}, marked), kAsked, 1);
    expect("none", "u-2", kOff, {"u-2 0 Failed to Set DAL Attr sorbEnableState"}, {ordered + "disable"}, kAsked, 1,
           "provisioned", "CircleCfgInternal.sorbEnableState");
    cloud.answer_all(kEmpty);
    store.set("CircleStatus.sorbStatus", "enabled");
    const StoreSpy spy;
    dro::toggle_circle("u-2", data_text(kOn));
    EXPECT_EQ(spy.writes(), Texts{"DroStatus.CircleToggle=false"}) << "the reply that nothing changes was not answered";
}

// ---- Health ----

TEST_F(Circle, TheAgentsHealthIsReportedToTheCloud) {
    dro::circle_cb_subscription();
    const Cases<const char*, const char*, const char*, std::string, std::string> cases{
        {"sorbAgentRunning", "false", "circle Agent running Status callback\n", "SORB_agent_running", "false"},
        {"sorbProvisioned", "true", "sorb provision running Status callback\n", "SORB_provisioned", "true"},
        {"rClientStatus", "connected", "rClient Status callback\n", "RCLIENT", "CONNECTED"},
        {"rClientStatus", "connectedX", "rClient Status callback\n", "RCLIENT", "DISCONNECTED"}};
    for (const auto& [field, value, logged, feature, state] : cases) {
        forget();
        store.set(std::string("CircleDebug.") + field, value);
        ASSERT_TRUE(log.wait_for("R_CLIENT_API call Successful\n\n")) << field;
        EXPECT_TRUE(log.has(std::string("(DROAGENT) - ") + logged, 1));
        EXPECT_EQ(only_request().path, "/deviceEvents");
        const std::string body = only_request().body;
        const std::string token = json_value(body, "token");
        EXPECT_EQ(token.size(), 64U);
        EXPECT_EQ(body, "{\n\t\"token\":\t\"" + token + "\",\n\t\"ePOCHTimeStamp\":\t\"" +
                            json_value(body, "ePOCHTimeStamp") +
                            "\",\n\t\"modelNumber\":\t\"RX-1\",\n\t\"serialNumber\":\t\"FSN0123456789\",\n\t"
                            "\"fwVersion\":\t\"7.8.9\",\n\t\"jorvDeviceId\":\t\"jorv-1\",\n\t\"feature\":\t\"" +
                            feature + "\",\n\t\"state\":\t\"" + state + "\"\n}");
        EXPECT_TRUE(log.has("(DROAGENT) - Payload for Client Status is " + body + "\n"));
    }
}

TEST_F(Circle, AHealthReportIsTriedThreeTimesAndDropped) {
    durations.retryPause = std::chrono::milliseconds(500);
    dro::set_durations(durations);
    EXPECT_EQ(dro::sendClientStatus(nullptr, "true"), 1);
    EXPECT_TRUE(log.has("feature is empty\n", 4));
    EXPECT_EQ(dro::sendClientStatus("RCLIENT", nullptr), 1);
    EXPECT_TRUE(log.has("state is empty\n"));
    EXPECT_TRUE(cloud.requests().empty());
    cloud.script("deviceEvents", {kAccepted, kRefused});
    EXPECT_EQ(dro::sendClientStatus("RCLIENT", "CONNECTED"), 0);
    EXPECT_EQ(dro::sendClientStatus("RCLIENT", "CONNECTED"), 1);
    EXPECT_EQ(cloud.requests().size(), 2U) << "a refused report is not sent again";
    cloud.forget();
    cloud.answer_all(kEmpty);
    dro::rClientStatus_cbHandler(nullptr);
    expect_three_attempts(false);
    EXPECT_EQ(log.count("(DROAGENT) - No response from DRO Cloud\n"), 3U);
    EXPECT_EQ(log.count_starting("(DROAGENT) - Sleeping for "), 2U);
    EXPECT_TRUE(log.has("(DROAGENT) - response from sendClientStatus is fail\n", 4));
}

}  // namespace
}  // namespace dro_test

// Registration: the router's data sent to the cloud, the effects of the answer, and the daily sync it configures.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "dro_reg.h"
#include "faults.h"
#include "pipeline.h"
#include "test_agent.h"

namespace dro_test {
namespace {

constexpr const char* kRegistered = R"({"status":1,"reset":false,"claimState":true,"syncTime":null})";

class Registration : public AgentTest {
 protected:
    ~Registration() override { alarm(0); }

    std::vector<Request> sent() const { return cloud.requests("addJorvDeviceId/"); }
    // A time of day in seconds.
    static constexpr int at(int h, int min = 0, int sec = 0) { return h * 3600 + min * 60 + sec; }
    bool done() const { return store.get("DROStatus.addJorvdeviceIdDone") == "true"; }

    // Registers with an accepting cloud and returns the request body.
    std::string registered_body() {
        cloud.forget();
        cloud.script("addJorvDeviceId/", {text_answer(kRegistered)});
        store.set("DROStatus.addJorvdeviceIdDone", "false");
        dro::registerDroCloud();
        return sent().size() == 1 ? sent().front().body : std::to_string(sent().size()) + " requests";
    }
};

TEST_F(Registration, SendsTheExactIdentityOnce) {
    const std::string body = registered_body();
    const std::string timestamp = json_value(body, "ePOCHTimeStamp");
    const std::string token = json_value(body, "token");
    EXPECT_EQ(token.size(), 64U);
    EXPECT_EQ(body, R"({"serialNo":"FSN0123456789","deviceType":"Home router","modelNumber":"RX-1",)"
                    R"("jorvDeviceId":"jorv-1","macaddress":"02:00:00:00:00:0A","ePOCHTimeStamp":")" +
                        timestamp + R"(","token":")" + token +
                        R"(","firmwareVersion":"7.8.9", "supportedFeatures":{"CDIL":true, "NewDeviceNoti":true,)"
                        R"("DeviceTagging":true,"BackgroudSpeedtest":true}})");
    EXPECT_TRUE(log.has("token : " + token + ", timestamp : " + timestamp + "\n", 2));
    EXPECT_TRUE(log.in_order({"Device Registered with JorvCloud\n\n", "Making payload here\n\n",
                              "Registering Device to DROCloud\n", "Registration Successful\n\n"}));
    EXPECT_TRUE(done());
    EXPECT_EQ(store.get("DroCfg.claimState"), "true");
    dro::registerDroCloud();
    EXPECT_EQ(sent().size(), 1U);
    EXPECT_TRUE(log.has("AddjorvDeviceId API already done\n", 2));
    // An overlong body is truncated.
    store.set_all({{"General.DeviceName", std::string(63, 'n')},
                   {"General.DeviceModel", std::string(63, 'm')},
                   {"General.FwRevision", std::string(63, 'f')},
                   {"JorvagentCfg.jorv_agent_id", std::string(47, 'j')}});
    start_agent();
    EXPECT_EQ(registered_body().size(), 511U);
}

TEST_F(Registration, ListsEachFeatureAndReportsAnUnreadableOneAsPresent) {
    const Cases<const char*, const char*> cases{{"droFeature.CDIL", R"("CDIL":false, )"},
                                                {"droFeature.NDN", R"("NewDeviceNoti":false,)"},
                                                {"droFeature.DTN", R"("DeviceTagging":false,)"},
                                                {"droFeature.BST", R"("BackgroudSpeedtest":false}})"}};
    for (const auto& [feature, text] : cases) {
        store.set(feature, "false");
        EXPECT_NE(registered_body().find(text), std::string::npos) << text;
    }
    StoreSpy spy;
    spy.fail("droFeature.BST", HAB_TIMEOUT);
    EXPECT_NE(registered_body().find(R"("BackgroudSpeedtest":true}})"), std::string::npos);
    EXPECT_TRUE(log.has(std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4));
}

TEST_F(Registration, ReadsAnIncompleteIdentityAgain) {
    store.set("JorvagentCfg.jorv_agent_id", "");
    start_agent();
    dro::registerDroCloud();
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(log.in_order({"Inside while ...FSN: FSN0123456789\n JorvID: \n",
                              "*** Somthing is wrong .. Not able to fsn or jorvid or mac***\n"}));

    store.set("JorvagentCfg.jorv_agent_id", "jorv-2");
    EXPECT_EQ(json_value(registered_body(), "jorvDeviceId"), "jorv-2");
    EXPECT_TRUE(log.has("Retry to get info \n", 1));
}

TEST_F(Registration, EvaluatesTheAnswer) {
    const auto expect = [&](const std::string& answer, int result, const char* claimBefore, const char* claimAfter,
                            const std::string& logged, int level) {
        log.forget();
        store.set("DroCfg.claimState", claimBefore);
        EXPECT_EQ(dro::processsRegisterResponse(answer.c_str()), result) << answer;
        EXPECT_EQ(store.get("DroCfg.claimState"), claimAfter) << answer;
        EXPECT_TRUE(log.has(logged, level)) << answer;
        const std::size_t timers = logged.starts_with("Time_stamp = ") ? 1 : 0;
        EXPECT_EQ(log.count_starting("Time_stamp = "), timers) << answer;
        EXPECT_TRUE(eventually([&] { return log.count_starting("Timer will start after ") == timers; })) << answer;
    };
    constexpr const char* kSuccess = "Successfully called addJorvDeviceId...\n";
    const std::string start = R"({"status":1,"reset":false,"claimState":true,"syncTime":)";
    expect(start + R"("02:00:00"})", 0, "false", "true", "Time_stamp = \"02:00:00\"\n", 1);
    expect(start + "7}", 0, "false", "true", "Time_stamp = 7\n", 1);
    expect(start + "[1,2]}", 0, "false", "true", "Time_stamp = [1, 2]\n", 1);
    const std::string cut = "\"" + std::string(30, '9');
    expect(start + cut + "9999999999\"}", 0, "false", "true", "Time_stamp = " + cut + "\n", 1);
    expect(start + "null}", 0, "false", "true", "null", 1);
    expect(R"({"status":true,"reset":null,"claimState":1,"syncTime":null})", 0, "true", "false", kSuccess, 1);
    expect(start + R"(null,"message":"late"})", 0, "false", "true", " message: late\n ", 4);
    expect(R"({"status":1,"claimState":true,"syncTime":null})", -1, "false", "false", kSuccess, 1);
    expect(R"({"status":1,"reset":true,"syncTime":null})", -1, "true", "true", "\nreset config called\n", 1);
    expect(R"({"status":1,"reset":false,"claimState":true})", -1, "false", "true", kSuccess, 1);
    constexpr const char* kRefused = "addJorvDeviceId not peformed successfully returned error status..\n";
    expect(R"({"status":0,"message":"no"})", -1, "true", "true", kRefused, 4);
    expect(R"({"status":0,"errorCode":"E1","claimState":false})", -1, "true", "true", " errorCode: E1\n ", 4);
    expect(R"({"status":false,"reset":true})", -1, "true", "true", "\nreset config called\n", 1);
    expect(R"({"status":2})", 0, "true", "true", "No Status code received...\n", 4);
    for (const std::string answer : {R"({"Status":1,"reset":false,"claimState":false,"syncTime":null})", "[1]", "?"}) {
        expect(answer, -1, "true", "true", "buff : " + answer + "\n", 1);
    }
}

TEST_F(Registration, RetriesWhenRefusedOrUnanswered) {
    cloud.script("addJorvDeviceId/", {kRefused, kHangUp, text_answer(kRegistered)});
    dro::registerDroCloud();
    EXPECT_EQ(sent().size(), 3U);
    EXPECT_TRUE(log.has("Response from DROCloud: {\"status\":0}\n"));
    EXPECT_TRUE(log.has("No response from DRO Cloud\n"));
    EXPECT_TRUE(done());

    cloud.forget();
    cloud.answer_all(kRefused);
    store.set("DROStatus.addJorvdeviceIdDone", "false");
    dro::registerDroCloud();
    expect_three_attempts(true);
    EXPECT_FALSE(done());

    cloud.forget();
    store.set_all({{"DROStatus.AddJorvdeviceIdDone", "true"}, {"DroCfg.claimState", "false"}});
    cloud.answer_all(text_answer(kRegistered));
    dro::registerDroCloud();
    EXPECT_EQ(sent().size(), 3U);
    EXPECT_EQ(log.count("AddJorvdeviceId Already Done..!\n", 2), 3U);
    EXPECT_FALSE(done());
    EXPECT_EQ(store.get("DroCfg.claimState"), "false");
}

// ---- Daily sync ----

TEST_F(Registration, SyncsAtTheTimeOfDayThatExistingRoutersUse) {
    const auto expect = [](const char* what, const std::string& text, int utc, int local, int seconds) {
        EXPECT_EQ(dro::seconds_until_sync(dro::sync_target(text), utc, local), seconds) << what;
    };
    expect("later today, an hour east", "\"02:00:00\"", at(0, 30), at(1, 30), 5400);
    EXPECT_TRUE(log.in_order({"hours = 2, min, = 0, sec, = 0\n", "time offset is 3600\n", "timer seconds is 10800\n",
                              "alarm seconds  is 5400\n"}));
    expect("tomorrow, an hour east", "\"02:00:00\"", at(3), at(4), 82800);
    expect("this very second", "\"03:00:00\"", at(3), at(4), 0);
    expect("a second ago", "\"02:59:59\"", at(3), at(4), 86399);
    expect("in a second", "\"03:00:01\"", at(3), at(4), 1);
    expect("UTC and local time on two dates, east", "\"02:00:00\"", 86399, at(0, 59, 59), 7201);
    expect("UTC and local time on two dates, west", "\"02:00:00\"", at(0, 30), at(23, 30), 5400);
    expect("before the day began", "\"-1:00:00\"", 86399, 86399, -3599);
    expect("no quotes", "02:00:00", 0, 0, 7200);
    expect("a number is hours", "7", 0, 0, 25200);
    expect("empty", "\"\"", 3600, 3600, 82800);
    expect("words", "\"ab:cd:ef\"", 3600, 3600, 82800);
    expect("no colons run on", "\"020000\"", 0, 0, 72'000'000);
    expect("a long field runs on until the next begins", "\"0203:04:05\"", 0, 0, 7'214'645);
    expect("hours without end", std::string(20, '9') + ":99:99", 0, 0, 360'002'439);
    expect("digits without end", std::string(5000, '9'), 0, 0, 877'403'291);
    expect("a fourth field", "01:02:03:04", 0, 0, at(1, 2, 3));
    expect("colons without end", "01" + std::string(5000, ':'), 0, 0, 3600);
}

TEST_F(Registration, SyncsByTheLocalTime) {
    setenv("TZ", "EAST-5:30", 1);
    const int offset = (dro::find_local_time() - dro::find_utc() + 86400) % 86400;
    unsetenv("TZ");
    EXPECT_NEAR(offset, at(5, 30), 1);  // the two clocks are read one after the other
}

TEST_F(Registration, SyncsByTheOnlyAlarm) {
    dro::alarm_function(1000);
    EXPECT_TRUE(log.has("Timer will start after 1000 Seconds\r\n", 1));
    const int expected = dro::seconds_until_sync(43200, dro::find_utc(), dro::find_local_time());
    dro::start_timer("\"12:00:00\"");
    EXPECT_NEAR(static_cast<int>(alarm(1000)), expected, 2);
    {
        const FailCalls fault(Call::threadCreate, EAGAIN);
        EXPECT_EQ(dro::processsRegisterResponse(R"({"status":1,"reset":false,"claimState":true,"syncTime":"1:00"})"),
                  0);
    }
    EXPECT_TRUE(log.has("No thread for the daily sync's timer: it stays as it was\n", 4));
    EXPECT_NEAR(static_cast<int>(alarm(1000)), 1000, 2);
    dro::alarm_function(0);
    EXPECT_EQ(alarm(0), 0U) << "a delay of 0 disarms";
}

TEST_F(Registration, SyncSetsItsCauseRequestsTheListAndWaitsADay) {
    const StoreSpy spy;
    dro::alarm_function(1000);
    struct sigaction installed {};
    sigaction(SIGALRM, nullptr, &installed);
    installed.sa_handler(SIGUSR2);
    EXPECT_TRUE(spy.writes().empty()) << "ignored: another signal";
    installed.sa_handler(SIGALRM);
    EXPECT_EQ(spy.writes(),
              (Texts{"DroStatus.cdilsyncAt=PERIODIC", "DILGeneral.CDILTrigger=true", "DALHConfig.FeatureID=8",
                     "DALHConfig.CDILRequest=occupied", "DALHConfig.ProcessID=1"}));
    EXPECT_NEAR(static_cast<int>(alarm(0)), 86400, 2);
}

// ---- A router whose clock starts in 1970 ----

#ifdef DRO_UNSET_CLOCK
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kPause{300};
constexpr milliseconds kWatch{700};  // longer than all attempts at a report

class UnsetClock : public ProcessTest {
 protected:
    UnsetClock() {
        store.set("DroStatus.cdilSupport", "true");
        cloud.answer_all(text_answer(R"({"status":1,"reset":false,"claimState":true,"syncTime":"00:00:12"})"));
        launch.environment = {{"LD_PRELOAD", DRO_UNSET_CLOCK},
                              {"DRO_TEST_CLOCK_SET", clockSet_},
                              {"TZ", "UTC0"},
                              {"DROAGENT_QUICK_PAUSE_MS", std::to_string(kPause.count())},
                              {"DROAGENT_QUICK_LIST_WATCH_MS", std::to_string(kWatch.count())}};
    }

    void set_clock() const { std::ofstream{clockSet_}; }
    // Waits for the only registration and returns its time stamp.
    long registered_at() const {
        const auto requests = cloud.wait_for(1, "addJorvDeviceId/");
        EXPECT_TRUE(store.wait_for("DROStatus.addJorvdeviceIdDone", "true"));
        return requests.size() == 1 ? std::stol(json_value(requests[0].body, "ePOCHTimeStamp")) : -1;
    }
    // The seconds from the registration to the daily list, once computed.
    static long alarm_seconds(const AgentProcess& agent) {
        constexpr std::string_view kText = "alarm seconds  is ";
        eventually([&] { return agent.log().count_starting(kText) == 1; });
        const std::string log = file_text(agent.log().path());
        return std::atol(log.substr(std::min(log.find(kText), log.size() - kText.size()) + kText.size()).c_str());
    }

    Launch launch{.quick = true};

 private:
    const std::string clockSet_ = store.folder() + "/clock-set";
};

// All pauses share one function and all monitor deadlines another, so one wait each covers them.
TEST_F(UnsetClock, CertificatesAreNotValidYetAndNoWaitChanges) {
    // The agent must not request a connection: the notice of that write could cause a second registration.
    store.set("JorvagentCfg.jorv_force_connection", "1");
    AgentProcess agent(store, launch);
    ASSERT_TRUE(agent.wait_for_link()) << agent.output();
    const auto connected = Clock::now();
    store.set("JorvagentCfg.jorv_agent_connected", "1");
    ASSERT_TRUE(agent.log().wait_for("No response from DRO Cloud\n", 3));
    EXPECT_GE(Clock::now() - connected, 2 * kPause);
    EXPECT_EQ(agent.log().count("(DROagent) - res= 0x3c, HTTP status code = 0\n"), 3U);
    EXPECT_EQ(agent.log().count_starting(
                  "curl_easy_perform() failed: SSL peer certificate or SSH remote key was not OK::", 4),
              3U);

    const auto ordered = Clock::now();
    send_message(kNotificationPort, R"({"UUID":"u","cmd":"FETCH_CD","data":{"status":0,"fetchFor":"app"}})");
    ASSERT_TRUE(agent.log().wait_for("Cdil Timeout Monitoring Thread Started!\n"));
    EXPECT_EQ(store.get("RADebugLog.cdilTimestamp"), "10");
    set_clock();
    const auto report = cloud.wait_for(1);
    ASSERT_EQ(report.size(), 1U);
    EXPECT_GE(report[0].at - ordered, kWatch);
    EXPECT_EQ(json_value(report[0].body, "failureReason"), "CDIL:Fail-Error timeout");

    // The next connector event registers the router. The daily list is at the right time of day.
    EXPECT_EQ(store.get("DROStatus.addJorvdeviceIdDone"), "false");
    store.set("JorvagentCfg.jorv_agent_claimed", "1");
    const long now = registered_at();
    EXPECT_LE(std::abs(std::time(nullptr) - now), 20);
    EXPECT_LE((now + alarm_seconds(agent) - 12 + 10) % 86'400, 20);
    const std::string log = file_text(agent.log().path());
    EXPECT_TRUE(log.starts_with("1970-01-01T00:00:10.000 ")) << log.substr(0, 30);
    EXPECT_NE(log.find("\n2"), std::string::npos) << "no line after the sync";
    expect_prompt_end(agent);
}

// Without a bundle no date is checked. The alarm is computed from the wrong time of day, and the sync does not move it.
TEST_F(UnsetClock, WithoutABundleTheDailyListIsAtAWrongTime) {
    remove_ca_bundle();
    store.set("JorvagentCfg.jorv_agent_registered", "1");
    AgentProcess agent(store, launch);
    EXPECT_EQ(registered_at(), 10);
    EXPECT_EQ(alarm_seconds(agent), 2);
    set_clock();
    EXPECT_TRUE(store.wait_for("DroStatus.cdilsyncAt", "PERIODIC"));
    EXPECT_TRUE(agent.log().wait_for("Timer will start after 86400 Seconds\r\n"));
    expect_prompt_end(agent);
}
#endif

}  // namespace
}  // namespace dro_test

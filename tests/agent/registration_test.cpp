// Registration: what the cloud is told about the router, and what its answer changes.
#include <unistd.h>

#include "dro_reg.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr const char* kRegistered = R"({"status":1,"reset":false,"claimState":true,"syncTime":null})";

class Registration : public AgentTest {
 protected:
    ~Registration() override { alarm(0); }

    std::vector<Request> sent() const { return cloud.requests("addJorvDeviceId/"); }
    bool done() const { return store.get("DROStatus.addJorvdeviceIdDone") == "true"; }

    // Registers against an accepting cloud and hands back the body.
    std::string registered_body() {
        cloud.forget();
        cloud.script("addJorvDeviceId/", {text_answer(kRegistered)});
        store.set("DROStatus.addJorvdeviceIdDone", "false");
        dro::registerDroCloud();
        return sent().size() == 1 ? sent().front().body : std::to_string(sent().size()) + " requests";
    }
};

TEST_F(Registration, SaysExactlyWhoTheRouterIsAndOnce) {
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
}

TEST_F(Registration, NamesEachFeatureAndTakesAnUnreadableOneForThere) {
    const auto expect = [&](const std::string& flag, const char* text) {
        store.set("droFeature." + flag, "false");
        EXPECT_NE(registered_body().find(text), std::string::npos) << text;
        store.set("droFeature." + flag, "true");
    };
    expect("CDIL", R"("CDIL":false, )");
    expect("NDN", R"("NewDeviceNoti":false,)");
    expect("DTN", R"("DeviceTagging":false,)");
    expect("BST", R"("BackgroudSpeedtest":false}})");
    StoreSpy spy;
    spy.fail("droFeature.BST", HAB_TIMEOUT);
    expect("BST", R"("BackgroudSpeedtest":true}})");
    EXPECT_TRUE(log.has(std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4));
}

TEST_F(Registration, CutsABodyThatIsTooLong) {
    store.set_all({{"General.DeviceName", std::string(63, 'n')},
                   {"General.DeviceModel", std::string(63, 'm')},
                   {"General.FwRevision", std::string(63, 'f')},
                   {"JorvagentCfg.jorv_agent_id", std::string(47, 'j')}});
    start_agent();
    EXPECT_EQ(registered_body().size(), 511U);
}

TEST_F(Registration, ReadsAnIncompleteIdentityAgain) {
    store.set("JorvagentCfg.jorv_agent_id", "");
    start_agent();
    dro::registerDroCloud();
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(log.has("*** Somthing is wrong .. Not able to fsn or jorvid or mac***\n", 4));
    EXPECT_TRUE(log.has("Inside while ...FSN: FSN0123456789\n JorvID: \n", 1));

    store.set("JorvagentCfg.jorv_agent_id", "jorv-2");
    EXPECT_EQ(json_value(registered_body(), "jorvDeviceId"), "jorv-2");
    EXPECT_TRUE(log.has("Retry to get info \n", 1));
}

TEST_F(Registration, JudgesTheAnswer) {
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
    expect(start + "\"" + std::string(40, '9') + "\"}", 0, "false", "true",
           "Time_stamp = \"" + std::string(30, '9') + "\n", 1);
    expect(start + "null}", 0, "false", "true", "null", 1);
    expect(R"({"status":true,"reset":null,"claimState":1,"syncTime":null})", 0, "true", "false", kSuccess, 1);
    expect(start + R"(null,"message":"late"})", 0, "false", "true", " message: late\n ", 4);
    expect(R"({"status":1,"claimState":true,"syncTime":null})", -1, "false", "false", kSuccess, 1);
    expect(R"({"status":1,"reset":true,"syncTime":null})", -1, "true", "true", "\nreset config called\n", 1);
    expect(R"({"status":1,"reset":false,"claimState":true})", -1, "false", "true", kSuccess, 1);
    expect(R"({"status":0,"message":"no"})", -1, "true", "true",
           "addJorvDeviceId not peformed successfully returned error status..\n", 4);
    expect(R"({"status":0,"errorCode":"E1","claimState":false})", -1, "true", "true", " errorCode: E1\n ", 4);
    expect(R"({"status":false,"reset":true})", -1, "true", "true", "\nreset config called\n", 1);
    expect(R"({"status":2})", 0, "true", "true", "No Status code received...\n", 4);
    for (const std::string answer : {R"({"Status":1,"reset":false,"claimState":false,"syncTime":null})", "[1]", "?"}) {
        expect(answer, -1, "true", "true", "buff : " + answer + "\n", 1);
    }
}

TEST_F(Registration, TriesARefusedOrSilentCloudAgain) {
    cloud.script("addJorvDeviceId/", {refused(), hang_up(), text_answer(kRegistered)});
    dro::registerDroCloud();
    EXPECT_EQ(sent().size(), 3U);
    EXPECT_TRUE(log.has("Response from DROCloud: {\"status\":0}\n"));
    EXPECT_TRUE(log.has("No response from DRO Cloud\n"));
    EXPECT_TRUE(done());

    cloud.forget();
    cloud.answer_all(refused());
    store.set("DROStatus.addJorvdeviceIdDone", "false");
    dro::registerDroCloud();
    expect_three_attempts(sent(), std::chrono::steady_clock::now(), true);
    EXPECT_FALSE(done());
}

TEST_F(Registration, TakesNoAnswerWhileTheOtherFlagIsSet) {
    store.set("DROStatus.AddJorvdeviceIdDone", "true");
    cloud.answer_all(text_answer(kRegistered));
    dro::registerDroCloud();
    EXPECT_EQ(sent().size(), 3U);
    EXPECT_EQ(log.count("AddJorvdeviceId Already Done..!\n", 2), 3U);
    EXPECT_FALSE(done());
    EXPECT_EQ(store.get("DroCfg.claimState"), "false");
}

}  // namespace
}  // namespace dro_test

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
        dro::registerDroCloud();
        return sent().size() == 1 ? sent().front().body : std::to_string(sent().size()) + " requests";
    }
};

TEST_F(Registration, SaysExactlyWhoTheRouterIs) {
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
}

TEST_F(Registration, HappensOnce) {
    store.set("DROStatus.addJorvdeviceIdDone", "true");
    dro::registerDroCloud();
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(log.has("AddjorvDeviceId API already done\n", 2));
}

TEST_F(Registration, NamesEachFeatureAndTakesAnUnreadableOneForThere) {
    const std::vector<std::pair<std::string, std::string>> features{{"CDIL", R"("CDIL":false, )"},
                                                                    {"NDN", R"("NewDeviceNoti":false,)"},
                                                                    {"DTN", R"("DeviceTagging":false,)"},
                                                                    {"BST", R"("BackgroudSpeedtest":false}})"}};
    for (const auto& [flag, text] : features) {
        store.set_all({{"droFeature." + flag, "false"}, {"DROStatus.addJorvdeviceIdDone", "false"}});
        const std::string body = registered_body();
        EXPECT_NE(body.find(text), std::string::npos) << body;
        store.set("droFeature." + flag, "true");
    }
    store.set_all({{"droFeature.BST", "false"}, {"DROStatus.addJorvdeviceIdDone", "false"}});
    StoreSpy spy;
    spy.fail("droFeature.BST", HAB_TIMEOUT);
    EXPECT_NE(registered_body().find(R"("BackgroudSpeedtest":true)"), std::string::npos);
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
    const std::string longTime(40, '9');
    struct Case {
        std::string answer;
        int result;
        const char* claimBefore;
        const char* claimAfter;
        std::string logged;
        int level;
        bool timer = false;
    };
    const std::vector<Case> cases{
        {R"({"status":1,"reset":false,"claimState":true,"syncTime":"02:00:00"})", 0, "false", "true",
         "Time_stamp = \"02:00:00\"\n", 1, true},
        {R"({"status":true,"reset":false,"claimState":false,"syncTime":null})", 0, "true", "false",
         "Successfully called addJorvDeviceId...\n", 1},
        {R"({"status":1,"reset":false,"claimState":1,"syncTime":7})", 0, "true", "false", "Time_stamp = 7\n", 1, true},
        {R"({"status":1,"reset":false,"claimState":true,"syncTime":[1,2]})", 0, "false", "true",
         "Time_stamp = [1, 2]\n", 1, true},
        {R"({"status":1,"reset":false,"claimState":true,"syncTime":")" + longTime + "\"}", 0, "false", "true",
         "Time_stamp = \"" + std::string(30, '9') + "\n", 1, true},
        {R"({"status":1,"reset":null,"claimState":true,"syncTime":null,"errorCode":"E2","message":"late"})", 0, "false",
         "true", " message: late\n ", 4},
        {R"({"status":1,"claimState":true,"syncTime":null})", -1, "false", "false",
         "Successfully called addJorvDeviceId...\n", 1},
        {R"({"status":1,"reset":true,"syncTime":null})", -1, "false", "false", "\nreset config called\n", 1},
        {R"({"status":1,"reset":false,"claimState":true})", -1, "false", "true",
         "Successfully called addJorvDeviceId...\n", 1},
        {R"({"status":0,"errorCode":"E1","message":"no"})", -1, "true", "true",
         "addJorvDeviceId not peformed successfully returned error status..\n", 4},
        {R"({"status":0,"errorCode":"E1","claimState":false})", -1, "true", "true", " errorCode: E1\n ", 4},
        {R"({"status":false,"reset":true})", -1, "true", "true", "\nreset config called\n", 1},
        {R"({"status":2})", 0, "true", "true", "No Status code received...\n", 4},
        {R"({"Status":1,"reset":false,"claimState":false,"syncTime":null})", -1, "true", "true",
         R"(buff : {"Status":1,"reset":false,"claimState":false,"syncTime":null})", 1},
        {"[1]", -1, "true", "true", "buff : [1]\n", 1},
        {"no JSON", -1, "true", "true", "buff : no JSON\n", 1},
    };
    for (const Case& c : cases) {
        log.forget();
        store.set("DroCfg.claimState", c.claimBefore);
        EXPECT_EQ(dro::processsRegisterResponse(c.answer.c_str()), c.result) << c.answer;
        EXPECT_EQ(store.get("DroCfg.claimState"), c.claimAfter) << c.answer;
        EXPECT_TRUE(log.has(c.logged, c.level)) << c.answer;
        EXPECT_EQ(log.count_starting("Time_stamp = "), c.timer ? 1U : 0U) << c.answer;
        EXPECT_EQ(eventually([&] { return log.count_starting("Timer will start after ") == 1; },
                             c.timer ? kPatience : std::chrono::milliseconds(0)),
                  c.timer)
            << c.answer;
    }
}

TEST_F(Registration, TriesARefusedOrSilentCloudAgainWithTheSameToken) {
    cloud.script("addJorvDeviceId/", {refused(), hang_up(), text_answer(kRegistered)});
    dro::registerDroCloud();
    const auto requests = sent();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].body, requests[2].body);
    EXPECT_GE(requests[1].at - requests[0].at, short_durations().retryPause);
    EXPECT_GE(requests[2].at - requests[1].at, short_durations().retryPause);
    EXPECT_TRUE(log.has("Response from DROCloud: {\"status\":0}\n"));
    EXPECT_TRUE(log.has("No response from DRO Cloud\n"));
    EXPECT_TRUE(done());
}

TEST_F(Registration, GivesUpAfterThreeAttemptsAndAPause) {
    cloud.answer_all(refused());
    dro::registerDroCloud();
    const auto end = std::chrono::steady_clock::now();
    ASSERT_EQ(sent().size(), 3U);
    EXPECT_GE(end - sent().back().at, short_durations().retryPause);
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

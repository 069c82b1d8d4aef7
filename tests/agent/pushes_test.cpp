// The pushes of single events and of speed-test results: bodies, attempts, and how the answers are judged.
#include "dro_generic_cloud_push.h"
#include "dro_pushst_cloud.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class Pushes : public AgentTest {};

TEST_F(Pushes, BodiesAreExact) {
    struct Case {
        int (*push)(const char*, const char*);
        const char* type;
        std::string payload;
        const char* path;  // "": not sent
        std::string rest;
        int result;
    };
    const std::string big = "[" + std::string(300'000, 'x') + "]";
    const std::string longResult = R"({"isp":")" + std::string(600, 'i') + "\"}";
    const auto generic = dro::pushToCloud_generic;
    const auto speedTest = dro::pushTocloud_bstdata;
    const std::vector<Case> cases{
        {generic, "NDN", R"({"a":1})", "/syncCD/", R"(,"type":"NDN","cd":{"a":1}})", 1},
        {generic, "DTN", "no JSON", "/syncCD/", R"(,"type":"DTN","cd":no JSON})", 1},
        {generic, "DTNX", "", "/syncCD/", R"(,"type":"DTNX","cd":})", 1},
        {generic, "UPDATE_CD", "[1]", "/syncCD/", R"(,"type":"UPDATE_CD","syncAt":"PERIODIC","cdl":[1]})", 1},
        {generic, "UPDATE_CDX", big, "/syncCD/", R"(,"type":"UPDATE_CDX","syncAt":"PERIODIC","cdl":)" + big + "}", 1},
        {generic, "UPDATE", "[1]", "", "", 0},
        {generic, "ndn", "[1]", "", "", 0},
        {generic, "", "[1]", "", "", 0},
        {speedTest, "B", R"({"ul":"1"})", "/pushStData/", R"(,"type":"B","data":{"ul":"1"}})", 0},
        {speedTest, "M", "{}", "/pushStData/", R"(,"type":"M","data":{}})", 0},
        {speedTest, "BB", "{}", "", "", 1},
        {speedTest, "b", "{}", "", "", 1},
        {speedTest, "", "{}", "", "", 1},
        // 511 characters in all, of which the signature takes the first 136.
        {speedTest, "B", longResult, "/pushStData/", (R"(,"type":"B","data":)" + longResult).substr(0, 511 - 136), 0},
    };
    for (const Case& c : cases) {
        cloud.forget();
        log.forget();
        store.set("DroStatus.cdilsyncAt", "PERIODIC");
        EXPECT_EQ(c.push(c.type, c.payload.c_str()), c.result) << c.type;
        const auto requests = cloud.requests();
        const bool sent = *c.path != '\0';
        ASSERT_EQ(requests.size(), sent ? 1U : 0U) << c.type;
        EXPECT_EQ(log.has("Invalid Event! Not making any call to Cloud!\n", 4), !sent) << c.type;
        if (sent) {
            EXPECT_EQ(requests[0].path, c.path) << c.type;
            EXPECT_EQ(after_signature(requests[0].body), c.rest) << c.type;
            const char* command = c.push == generic ? "CMD is  : " : "CMD is : ";
            EXPECT_TRUE(log.has(command + requests[0].body + "\n")) << c.type;
        }
    }
    EXPECT_EQ(dro::pushToCloud_generic("NDN", nullptr), 1);
    EXPECT_TRUE(log.has("Invalid payload!!\n", 4));
}

TEST_F(Pushes, JudgeTheAnswer) {
    struct Case {
        const char* answer;
        int status;
        bool accepted;
        int judged;
        const char* genericLog;
        const char* speedTestLog;
        int level;
    };
    constexpr const char* kNoStatus = "No Status code received...\n";
    constexpr const char* kNoMember = " Parse input string for key status not found\n";
    const std::vector<Case> cases{
        {R"({"status":1})", 200, true, 0, "\nG-API Status Success response\n",
         "\npushstdata-API Status Success response\n", 1},
        {R"({"status":true})", 500, true, 0, "G-API call Successfull\n\n", "PUSHDATA-API call Successfull\n\n", 1},
        {R"({"status":0})", 200, false, -1, "\nG-API Status Failure response\n",
         "\npushstdata-API Status Failure response\n", 4},
        {R"({"status":2})", 200, false, -1, kNoStatus, kNoStatus, 4},
        {R"({"Status":1})", 200, false, 1, kNoMember, kNoMember, 4},
        {"<html>", 502, false, 1, "G-API called: <html>\n", "G-API called: <html>\n", 1},
    };
    for (const Case& c : cases) {
        cloud.answer_all(text_answer(c.answer, c.status));
        EXPECT_EQ(dro::processGenericApiResponse(c.answer), c.judged) << c.answer;
        EXPECT_EQ(dro::processpushdataApiResponse(c.answer), c.judged) << c.answer;
        cloud.forget();
        log.forget();
        EXPECT_EQ(dro::pushToCloud_generic("DTN", "{}"), c.accepted ? 1 : 0) << c.answer;
        EXPECT_TRUE(log.has(c.genericLog, c.level)) << c.answer;
        log.forget();
        EXPECT_EQ(dro::pushTocloud_bstdata("B", "{}"), 0) << c.answer;
        EXPECT_TRUE(log.has(c.speedTestLog, c.level)) << c.answer;
        EXPECT_EQ(cloud.requests().size(), 2U) << "an answer ends the attempts: " << c.answer;
    }
}

TEST_F(Pushes, TryASilentCloudThreeTimesWithAPauseAfterEach) {
    cloud.answer_all(empty_answer());
    struct Case {
        int (*push)(const char*, const char*);
        const char* type;
        int result;
    };
    for (const Case& c : {Case{dro::pushToCloud_generic, "UPDATE_CD", 1}, {dro::pushTocloud_bstdata, "M", 0}}) {
        cloud.forget();
        log.forget();
        store.set("DroStatus.cdilsyncAt", "PERIODIC");
        EXPECT_EQ(c.push(c.type, "[]"), c.result);
        const auto end = std::chrono::steady_clock::now();
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), 3U);
        EXPECT_EQ(requests[0].body, requests[2].body) << "one token for all";
        EXPECT_GE(requests[1].at - requests[0].at, short_durations().retryPause);
        EXPECT_GE(end - requests[2].at, short_durations().retryPause);
        EXPECT_EQ(log.count("No response from DRO Cloud\n", 4), 3U);
        EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), c.result == 1 ? "" : "PERIODIC") << "told once, even if unheard";
    }
    cloud.forget();
    cloud.script("syncCD/", {hang_up(), refused()});
    EXPECT_EQ(dro::pushToCloud_generic("NDN", "{}"), 0);
    EXPECT_EQ(cloud.requests().size(), 2U);
}

}  // namespace
}  // namespace dro_test

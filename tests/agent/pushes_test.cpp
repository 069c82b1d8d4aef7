// The pushes of single events and of speed-test results: bodies, attempts, and how the answers are judged.
#include "dro_generic_cloud_push.h"
#include "dro_pushst_cloud.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr auto kGeneric = dro::pushToCloud_generic;
constexpr auto kSpeedTest = dro::pushTocloud_bstdata;

class Pushes : public AgentTest {};

TEST_F(Pushes, BodiesAreExact) {
    const auto expect = [&](auto push, const char* type, const std::string& payload, const std::string& path,
                            const std::string& rest, int result) {
        cloud.forget();
        store.set("DroStatus.cdilsyncAt", "PERIODIC");
        EXPECT_EQ(push(type, payload.c_str()), result) << type;
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), 1U) << type;
        EXPECT_EQ(requests[0].path, path) << type;
        EXPECT_EQ(after_signature(requests[0].body), rest) << type;
        EXPECT_TRUE(log.has((push == kGeneric ? "CMD is  : " : "CMD is : ") + requests[0].body + "\n")) << type;
    };
    const std::string big = "[" + std::string(300'000, 'x') + "]";
    const std::string longResult = R"({"isp":")" + std::string(600, 'i') + "\"}";
    constexpr std::size_t kSignature = 136;
    expect(kGeneric, "NDN", R"({"a":1})", "/syncCD/", R"(,"type":"NDN","cd":{"a":1}})", 1);
    expect(kGeneric, "DTN", "no JSON", "/syncCD/", R"(,"type":"DTN","cd":no JSON})", 1);
    expect(kGeneric, "DTNX", "", "/syncCD/", R"(,"type":"DTNX","cd":})", 1);
    expect(kGeneric, "UPDATE_CD", "[1]", "/syncCD/", R"(,"type":"UPDATE_CD","syncAt":"PERIODIC","cdl":[1]})", 1);
    expect(kGeneric, "UPDATE_CDX", big, "/syncCD/", R"(,"type":"UPDATE_CDX","syncAt":"PERIODIC","cdl":)" + big + "}",
           1);
    expect(kSpeedTest, "B", R"({"ul":"1"})", "/pushStData/", R"(,"type":"B","data":{"ul":"1"}})", 0);
    expect(kSpeedTest, "M", "{}", "/pushStData/", R"(,"type":"M","data":{}})", 0);
    expect(kSpeedTest, "B", longResult, "/pushStData/",
           (R"(,"type":"B","data":)" + longResult).substr(0, 511 - kSignature), 0);
}

TEST_F(Pushes, UnknownTypesAreNotSent) {
    for (const char* type : {"UPDATE", "ndn", "DT", ""}) {
        EXPECT_EQ(kGeneric(type, "{}"), 0) << type;
    }
    for (const char* type : {"BB", "b", "Scheduled", ""}) {
        EXPECT_EQ(kSpeedTest(type, "{}"), 1) << type;
    }
    EXPECT_EQ(log.count("Invalid Event! Not making any call to Cloud!\n", 4), 8U);
    EXPECT_EQ(kGeneric("NDN", nullptr), 1);
    EXPECT_TRUE(log.has("Invalid payload!!\n", 4));
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(Pushes, JudgeTheAnswer) {
    const auto expect = [&](const char* answer, int httpStatus, int judged, const char* genericLog,
                            const char* speedTestLog, int level) {
        cloud.forget();
        cloud.answer_all(text_answer(answer, httpStatus));
        EXPECT_EQ(dro::processGenericApiResponse(answer), judged) << answer;
        EXPECT_EQ(dro::processpushdataApiResponse(answer), judged) << answer;
        log.forget();
        EXPECT_EQ(kGeneric("DTN", "{}"), judged == 0 ? 1 : 0) << answer;
        EXPECT_TRUE(log.has(genericLog, level)) << answer;
        log.forget();
        EXPECT_EQ(kSpeedTest("B", "{}"), 0) << answer;
        EXPECT_TRUE(log.has(speedTestLog, level)) << answer;
        EXPECT_EQ(cloud.requests().size(), 2U) << "an answer ends the attempts: " << answer;
    };
    constexpr const char* kNoStatus = "No Status code received...\n";
    constexpr const char* kNoMember = " Parse input string for key status not found\n";
    expect(R"({"status":1})", 200, 0, "\nG-API Status Success response\n", "\npushstdata-API Status Success response\n",
           1);
    expect(R"({"status":true})", 500, 0, "G-API call Successfull\n\n", "PUSHDATA-API call Successfull\n\n", 1);
    expect(R"({"status":0})", 200, -1, "\nG-API Status Failure response\n",
           "\npushstdata-API Status Failure response\n", 4);
    expect(R"({"status":2})", 200, -1, kNoStatus, kNoStatus, 4);
    expect(R"({"Status":1})", 200, 1, kNoMember, kNoMember, 4);
    expect("<html>", 502, 1, "G-API called: <html>\n", "G-API called: <html>\n", 1);
}

TEST_F(Pushes, TryASilentCloudThreeTimesWithAPauseAfterEach) {
    cloud.answer_all(empty_answer());
    store.set("DroStatus.cdilsyncAt", "PERIODIC");
    EXPECT_EQ(kGeneric("UPDATE_CD", "[]"), 1);
    expect_three_attempts(cloud.requests(), std::chrono::steady_clock::now(), true);
    EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), "") << "told once, even if unheard";
    cloud.forget();
    EXPECT_EQ(kSpeedTest("M", "[]"), 0);
    expect_three_attempts(cloud.requests(), std::chrono::steady_clock::now(), true);
    EXPECT_EQ(log.count("No response from DRO Cloud\n", 4), 6U);
    cloud.forget();
    cloud.script("syncCD/", {hang_up(), refused()});
    EXPECT_EQ(kGeneric("NDN", "{}"), 0);
    EXPECT_EQ(cloud.requests().size(), 2U);
}

}  // namespace
}  // namespace dro_test

// What the simulated cloud lets pass and what it does not: each case spoils one thing of a request that is right.
#include "cloud_checks.h"

#include <gtest/gtest.h>

#include <functional>

#include "lab_provisioning.h"

namespace lab {
namespace {

constexpr const char* kSerial = "LAB000000000001";
constexpr std::int64_t kNow = 1700000000;
constexpr const char* kStamp = "1700000000";

const std::string kRecord =
    R"("connApMac":"","cdName":"Anna's phone","cdModel":"","cdType":"","cdBrand":"","cdNetworkInfo":"",)"
    R"("cddisplayType":"","connSsid":"","downloadBw":"","uploadBw":"","deviceSignalStrength":"","deviceLinkRate":"",)"
    R"("cdStatus":"1","cdTaggedStatus":"0","cdBlockedStatus":"0")";
const std::string kListed = R"({"cdMac":"","cdIp":"","cdConnInterface":"",)" + kRecord + "}";
const std::string kSynced = R"({"mac":"","cdIP":"","cdConnectionInterface":"",)" + kRecord + "}";

// A request that is right, but for the endpoint's own members.
Received request(const std::string& path, const std::string& members) {
    const std::string serial = path == "/addJorvDeviceId/" ? "serialNo" : "serialNumber";
    return {"POST",
            path,
            "qa.dro.localhost",
            "application/json",
            provisioning::kNonProductionKey,
            R"({"token":")" + expectedToken(kSerial, kStamp) + R"(","ePOCHTimeStamp":")" + kStamp + R"(",")" + serial +
                R"(":")" + kSerial + "\"" + members + "}"};
}

Received acknowledgement() {
    return request("/transactionAck/", R"(,"transactionId":"t","transactionStatus":"1","failureReason":"Success")");
}

std::string faultOf(const Received& received) {
    const Checked checked = checkRequest(received, {kSerial, kNow});
    return checked.fault ? std::to_string(checked.fault->status) + " " + checked.fault->why : "";
}

TEST(CloudChecks, TokenIsTheDigestOfItsInputCutAt63Characters) {
    EXPECT_EQ(expectedToken(kSerial, kStamp), "a9b57df05650a62eea37c9183608ef8df8791a0ba29952f27093ad3d3f10512a");
    EXPECT_EQ(expectedToken(std::string(63, 'S'), "1"), expectedToken(std::string(64, 'S'), "2"));
    EXPECT_NE(expectedToken(std::string(61, 'S'), "1"), expectedToken(std::string(61, 'S'), "2"));
}

TEST(CloudChecks, EveryKindOfRequestPassesWhenItIsRight) {
    const std::vector<Received> all{
        acknowledgement(),
        request("/transactionAck/", R"(,"transactionId":"t","transactionStatus":"1","failureReason":"Success",)"
                                    R"("fetchFor":"", "relayData":{"cdl":[)" +
                                        kListed + "]}"),
        request("/addJorvDeviceId/",
                R"(,"deviceType":"","modelNumber":"","jorvDeviceId":"","macaddress":"","firmwareVersion":"",)"
                R"("supportedFeatures":{"CDIL":true,"NewDeviceNoti":true,"DeviceTagging":false,)"
                R"("BackgroudSpeedtest":true})"),
        request("/syncCD/", R"(,"type":"CDIL","syncAt":"PERIODIC" ,"cdl":[])"),
        request("/syncCD/", R"(,"type":"UPDATE_CD","syncAt":"CD_UPDATE","cdl":[)" + kSynced + "]"),
        request("/syncCD/", R"(,"type":"NDN","cd":)" + kSynced),
        request("/syncCD/", R"(,"type":"DTN","cd":{"mac":"","cdType":"","cdName":"","cdModel":"","cdBrand":"",)"
                            R"("cdNetwork":"","cdStatus":"0"})"),
        request("/pushStData/", R"(,"type":"M","data":{"isp":"","ul":"1","dl":"2","serverId":"3","latency":"4",)"
                                R"("timestamp":"5"})"),
        request("/pc/circle/cuuid", R"(,"uuid":"t","circleUUID":"c")"),
        request("/deviceEvents", R"(,"modelNumber":"","fwVersion":"","jorvDeviceId":"","feature":"RCLIENT",)"
                                 R"("state":"CONNECTED")")};
    for (const auto& each : all) {
        EXPECT_EQ(faultOf(each), "") << each.body;
    }
}

TEST(CloudChecks, OneThingWrongIsSeenAndNamed) {
    struct Case {
        std::function<void(Received&)> spoil;
        const char* fault;
    };
    const std::vector<Case> cases{
        {[](Received& r) { r.path = "/transactionAck"; }, "404 no such endpoint"},
        {[](Received& r) { r.method = "PUT"; }, "405 PUT instead of POST"},
        {[](Received& r) { r.contentType = "text/plain"; }, "415 Content-Type is \"text/plain\""},
        {[](Received& r) { r.host = "cloud.example"; }, "421 host \"cloud.example\" belongs to no environment"},
        {[](Received& r) { r.host = "api.dro.localhost"; }, "401 wrong API key for api.dro.localhost"},
        {[](Received& r) { r.apiKey.pop_back(); }, "401 wrong API key for qa.dro.localhost"},
        {[](Received& r) { r.body.pop_back(); }, "400 the body is no JSON object"},
        {[](Received& r) { r.body += "x"; }, "400 the body is no JSON object"},
        {[](Received& r) { r.body = "[]"; }, "400 the body is no JSON object"}};
    for (const auto& [spoil, fault] : cases) {
        Received received = acknowledgement();
        spoil(received);
        EXPECT_EQ(faultOf(received), fault);
    }
    Received production = acknowledgement();
    production.host = "api.dro.localhost";
    production.apiKey = provisioning::kProductionKey;
    EXPECT_EQ(faultOf(production), "");
}

// Replaces a piece of a right body.
std::string faultWith(Received received, const std::string& piece, const std::string& other) {
    const std::size_t place = received.body.find(piece);
    EXPECT_NE(place, std::string::npos) << piece;
    received.body.replace(place, piece.size(), other);
    return faultOf(received);
}

TEST(CloudChecks, ASpoiledMemberIsSeenAndNamed) {
    const Received ack = acknowledgement();
    EXPECT_EQ(faultWith(ack, R"("token":"a)", R"("token":"b)"),
              "401 the token does not belong to this serial number and time stamp");
    EXPECT_EQ(faultWith(ack, R"("token")", R"("Token")"), "400 token is missing or no string");
    EXPECT_EQ(faultWith(ack, kSerial, "LAB000000000002"), "401 unknown serial number \"LAB000000000002\"");
    EXPECT_EQ(faultWith(ack, kStamp, "170000000x"), "400 ePOCHTimeStamp is no number of seconds");
    EXPECT_EQ(faultWith(ack, kStamp, "1700000301"), "401 ePOCHTimeStamp is 301 s off");
    EXPECT_EQ(faultWith(ack, R"("transactionStatus":"1")", R"("transactionStatus":1)"),
              "400 transactionStatus is missing or no string");
    EXPECT_EQ(faultWith(ack, R"("transactionStatus":"1")", R"("transactionStatus":"2")"),
              "400 transactionStatus is \"2\"");
    EXPECT_EQ(faultWith(ack, "}", R"(,"relayData":{"cdl":[]}})"), "400 fetchFor is missing or no string");
    EXPECT_EQ(faultWith(ack, "}", R"(,"fetchFor":"","relayData":{"cdl":[)" + kSynced + "]}}"),
              "400 cdMac is missing or no string");
    const Received sync = request("/syncCD/", R"(,"type":"CDIL","syncAt":"","cdl":[)" + kSynced + "]");
    EXPECT_EQ(faultWith(sync, R"("type":"CDIL")", R"("type":"CD")"), "400 type is \"CD\"");
    EXPECT_EQ(faultWith(sync, R"("mac")", R"("cdMac")"), "400 mac is missing or no string");
    EXPECT_EQ(faultWith(sync, R"("cdStatus":"1",)", ""), "400 device: cdStatus is missing or no string");
}

}  // namespace
}  // namespace lab

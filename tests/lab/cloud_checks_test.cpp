// The simulated cloud's request checks: each case breaks one part of a valid request.
#include "cloud_checks.h"

#include <gtest/gtest.h>

#include <functional>

#include "cases.h"
#include "lab_provisioning.h"

namespace lab {
namespace {

constexpr const char* kSerial = "LAB000000000001";
constexpr std::int64_t kNow = 1700000000;
constexpr const char* kStamp = "1700000000";

const std::string kSynced =
    R"({"mac":"","cdIP":"","cdConnectionInterface":"","connApMac":"","cdName":"Anna's phone","cdModel":"","cdType":"","cdBrand":"","cdNetworkInfo":"",)"
    R"("cddisplayType":"","connSsid":"","downloadBw":"","uploadBw":"","deviceSignalStrength":"","deviceLinkRate":"",)"
    R"("cdStatus":"1","cdTaggedStatus":"0","cdBlockedStatus":"0"})";

// A valid request, apart from the endpoint's own members.
Received request(const std::string& path, const std::string& members) {
    const std::string body = R"({"token":")" + expectedToken(kSerial, kStamp) + R"(","ePOCHTimeStamp":")" + kStamp +
                             R"(","serialNumber":")" + kSerial + "\"" + members + "}";
    return {"POST", path, "qa.dro.localhost", "application/json", provisioning::kNonProductionKey, body};
}

Received acknowledgement() {
    return request("/transactionAck/", R"(,"transactionId":"t","transactionStatus":"1","failureReason":"Success")");
}

std::string faultOf(const Received& received) {
    const Checked checked = checkRequest(received, {kSerial, kNow});
    return checked.fault ? std::to_string(checked.fault->status) + " " + checked.fault->why : "";
}

TEST(CloudChecks, OneThingWrongIsSeenAndNamed) {
    const dro_test::Cases<std::function<void(Received&)>, const char*> cases{
        {[](Received&) {}, ""},
        {[](Received& r) { r.path = "/transactionAck"; }, "404 no such endpoint"},
        {[](Received& r) { r.method = "PUT"; }, "405 PUT instead of POST"},
        {[](Received& r) { r.contentType = "text/plain"; }, "415 Content-Type is \"text/plain\""},
        {[](Received& r) { r.host = "cloud.example"; }, "421 host \"cloud.example\" belongs to no environment"},
        {[](Received& r) { r.host = "api.dro.localhost", r.apiKey = provisioning::kProductionKey; }, ""},
        {[](Received& r) { r.host = "api.dro.localhost"; }, "401 wrong API key for api.dro.localhost"},
        {[](Received& r) { r.apiKey.pop_back(); }, "401 wrong API key for qa.dro.localhost"},
        {[](Received& r) { r.body.pop_back(); }, "400 the body is not a JSON object"},
        {[](Received& r) { r.body += "x"; }, "400 the body is not a JSON object"},
        {[](Received& r) { r.body = "[]"; }, "400 the body is not a JSON object"},
        {[](Received& r) { r.body.replace(r.body.find("Success"), 7, "\xFC"); }, "400 the body is not a JSON object"}};
    for (const auto& [spoil, fault] : cases) {
        Received received = acknowledgement();
        spoil(received);
        EXPECT_EQ(faultOf(received), fault);
    }
    const Received ack = acknowledgement();
    const Received sync = request("/syncCD/", R"(,"type":"CDIL","syncAt":"","cdl":[)" + kSynced + "]");
    // The request, a part of it, its replacement, and the expected fault.
    const dro_test::Cases<Received, std::string, std::string, const char*> members{
        {ack, R"("token":"a)", R"("token":"b)", "401 the token does not match the serial number and time stamp"},
        {ack, R"("token")", R"("Token")", "400 token is missing or not a string"},
        {ack, kSerial, "LAB000000000002", "401 unknown serial number \"LAB000000000002\""},
        {ack, kStamp, "170000000x", "400 ePOCHTimeStamp is not a number of seconds"},
        {ack, kStamp, "1700000301", "401 ePOCHTimeStamp is 301 s off"},
        {ack, R"("1")", "1", "400 transactionStatus is missing or not a string"},
        {ack, R"("1")", R"("2")", "400 transactionStatus is \"2\""},
        {ack, "}", R"(,"relayData":{"cdl":[]}})", "400 fetchFor is missing or not a string"},
        {ack, "}", R"(,"fetchFor":"","relayData":{"cdl":[)" + kSynced + "]}}", "400 cdMac is missing or not a string"},
        {sync, R"("CDIL")", R"("CD")", "400 type is \"CD\""},
        {sync, R"("mac")", R"("cdMac")", "400 mac is missing or not a string"},
        {sync, R"("cdStatus":"1",)", "", "400 device: cdStatus is missing or not a string"}};
    for (const auto& [right, piece, other, fault] : members) {
        Received spoiled = right;
        spoiled.body.replace(right.body.find(piece), piece.size(), other);
        EXPECT_EQ(faultOf(right), "");
        EXPECT_EQ(faultOf(spoiled), fault);
    }
}

TEST(CloudChecks, ValuesInsideOfTooManyOthersAreNoJson) {
    for (const std::size_t lists : {1000U, 1001U, 1000000U}) {
        const std::string deep = R"(,"deep":)" + std::string(lists, '[') + std::string(lists, ']');
        const Received received = request("/pc/circle/cuuid", R"(,"uuid":"","circleUUID":"")" + deep);
        EXPECT_EQ(faultOf(received), lists == 1000 ? "" : "400 the body is not a JSON object") << lists;
    }
}

}  // namespace
}  // namespace lab

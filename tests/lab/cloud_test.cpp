// The simulated cloud: its request checks, each case with one part of a valid request broken; its moods, from a
// client's side over TLS; and its record.
#include <gtest/gtest.h>
#include <httplib.h>

#include <functional>
#include <future>

#include "cases.h"
#include "cloud_checks.h"
#include "cloud_server.h"
#include "lab.h"
#include "lab_provisioning.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

constexpr const char* kSerial = "LAB000000000001";
constexpr std::int64_t kNow = 1700000000;

const std::string kSynced =
    R"({"mac":"","cdIP":"","cdConnectionInterface":"","connApMac":"","cdName":"Anna's phone","cdModel":"","cdType":"","cdBrand":"","cdNetworkInfo":"",)"
    R"("cddisplayType":"","connSsid":"","downloadBw":"","uploadBw":"","deviceSignalStrength":"","deviceLinkRate":"",)"
    R"("cdStatus":"1","cdTaggedStatus":"0","cdBlockedStatus":"0"})";

// A valid request, apart from the endpoint's own members.
Received request(const std::string& path, const std::string& members, std::int64_t now = kNow) {
    const std::string stamp = std::to_string(now);
    const std::string body = R"({"token":")" + expectedToken(kSerial, stamp) + R"(","ePOCHTimeStamp":")" + stamp +
                             R"(","serialNumber":")" + kSerial + "\"," + members + "}";
    return {"POST", path, "qa.dro.localhost", "application/json", provisioning::kNonProductionKey, body};
}

Received acknowledgement(std::int64_t now = kNow) {
    return request("/transactionAck/", R"("transactionId":"t","transactionStatus":"1","failureReason":"Success")", now);
}

std::string faultOf(const Received& received) {
    const Checked checked = checkRequest(received, {kSerial, kNow});
    return checked.fault ? std::to_string(checked.fault->status) + " " + checked.fault->why : "";
}

TEST(CloudChecks, EachSingleFaultIsReported) {
    const dro_test::Cases<std::function<void(Received&)>, const char*> cases{
        {[](Received&) {}, ""},
        {[](Received& r) { r.path = "/transactionAck"; }, "404 no such endpoint"},
        {[](Received& r) { r.method = "PUT"; }, "405 PUT instead of POST"},
        {[](Received& r) { r.contentType = "text/plain"; }, "415 Content-Type is \"text/plain\""},
        {[](Received& r) { r.host = "cloud.example"; }, "421 host \"cloud.example\" belongs to no environment"},
        {[](Received& r) { r.host = "api.dro.localhost", r.apiKey = provisioning::kProductionKey; }, ""},
        {[](Received& r) { r.host = "api.dro.localhost"; }, "401 wrong API key for api.dro.localhost"},
        {[](Received& r) { r.apiKey.pop_back(); }, "401 wrong API key for qa.dro.localhost"},
        {[](Received& r) { r.body = "[]"; }, "400 the body is not a JSON object"}};
    for (const auto& [spoil, fault] : cases) {
        Received received = acknowledgement();
        spoil(received);
        EXPECT_EQ(faultOf(received), fault);
    }
    const Received ack = acknowledgement();
    const Received sync = request("/syncCD/", R"("type":"CDIL","syncAt":"","cdl":[)" + kSynced + "]");
    const auto nested = [](std::size_t depth) {
        return R"(,"deep":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
    };
    // The request, a part of it, its replacement, and the expected fault.
    const dro_test::Cases<Received, std::string, std::string, const char*> members{
        {ack, "}", "", "400 the body is not a JSON object"},
        {ack, "}", "}x", "400 the body is not a JSON object"},
        {ack, "Success", "\xFC", "400 the body is not a JSON object"},
        {ack, "}", nested(1000), ""},
        {ack, "}", nested(1001), "400 the body is not a JSON object"},
        {ack, "}", nested(1000000), "400 the body is not a JSON object"},
        {ack, R"("token":"a)", R"("token":"b)", "401 the token does not match the serial number and time stamp"},
        {ack, R"("token")", R"("Token")", "400 token is missing or not a string"},
        {ack, kSerial, "LAB000000000002", "401 unknown serial number \"LAB000000000002\""},
        {ack, "1700000000", "170000000x", "400 ePOCHTimeStamp is not a number of seconds"},
        {ack, "1700000000", "1700000301", "401 ePOCHTimeStamp is 301 s off"},
        {ack, R"("1")", "1", "400 transactionStatus is missing or not a string"},
        {ack, R"("1")", R"("2")", "400 transactionStatus is \"2\""},
        {ack, "}", R"(,"relayData":{"cdl":[]}})", "400 fetchFor is missing or not a string"},
        {ack, "}", R"(,"fetchFor":"","relayData":{"cdl":[)" + kSynced + "]}}", "400 cdMac is missing or not a string"},
        {sync, "", "", ""},
        {sync, R"("CDIL")", R"("CD")", "400 type is \"CD\""},
        {sync, R"("mac")", R"("cdMac")", "400 mac is missing or not a string"},
        {sync, R"("cdStatus":"1",)", "", "400 device: cdStatus is missing or not a string"}};
    for (const auto& [right, piece, other, fault] : members) {
        Received spoiled = right;
        spoiled.body.replace(right.body.find(piece), piece.size(), other);
        EXPECT_EQ(faultOf(spoiled), fault);
    }
}

class CloudServerTest : public testing::Test {
 protected:
    // The answer to a request: status and body, or "nothing".
    std::string post(const std::string& body = acknowledgement(std::time(nullptr)).body) const {
        httplib::SSLClient client("qa.dro.localhost", cloud_.port());
        client.set_hostname_addr_map({{"qa.dro.localhost", "127.0.0.1"}});
        client.set_ca_cert_path(bundle_);
        client.enable_server_certificate_verification(true);
        const auto result = client.Post("/transactionAck/", {{"X-DreamFactoryAPIKey", provisioning::kNonProductionKey}},
                                        body, "application/json");
        return result ? std::to_string(result->status) + " " + result->body : "nothing";
    }

    TemporaryFolder folder_;
    const std::string bundle_ = folder_.path() / "ca.crt";
    Timeline timeline_;
    CloudRecord record_;
    CloudServer cloud_{timeline_, record_, kSerial, bundle_};
};

TEST_F(CloudServerTest, RefusesAnInvalidRequestInEveryMood) {
    cloud_.behave(Mood::Error, 1);
    EXPECT_EQ(post("{}"), R"(400 {"status":0,"message":"serialNumber is missing or not a string"})");
    ASSERT_EQ(record_.mark(), 1U);
    EXPECT_FALSE(record_.since(0).front()->good());
    EXPECT_TRUE(post().starts_with("500 ")) << "an invalid request does not consume the mood";
}

TEST_F(CloudServerTest, StallsUntilTheMoodChangesOrItGoesDown) {
    for (const bool down : {false, true}) {
        cloud_.behave(Mood::Stall);
        const std::size_t from = record_.mark();
        auto answer = std::async(std::launch::async, [this] { return post(); });
        ASSERT_NE(record_.await(from, &CloudRequest::good, milliseconds(5000)), nullptr);
        EXPECT_EQ(answer.wait_for(milliseconds(50)), std::future_status::timeout);
        down ? cloud_.down() : cloud_.behave(Mood::Accept);
        EXPECT_EQ(answer.get(), down ? "nothing" : R"(200 {"status":1})");
    }
    EXPECT_EQ(post(), "nothing");
    cloud_.behave(Mood::Accept);
    cloud_.up();
    EXPECT_EQ(post(), R"(200 {"status":1})") << "on the same port";
}

TEST(CloudRecord, DropsTheOldestAndKeepsPositionsValid) {
    CloudRecord record;
    for (int i = 0; i < 10003; ++i) {
        record.add(std::make_shared<CloudRequest>());
    }
    EXPECT_EQ(record.mark(), 10003U);
    EXPECT_EQ(record.since(0).size(), 10000U);
    EXPECT_EQ(record.since(10002).size(), 1U);
    EXPECT_EQ(record.await(
                  record.mark(), [](const CloudRequest&) { return true; }, milliseconds(1)),
              nullptr);
}

}  // namespace
}  // namespace lab

// The simulated cloud from a client's side: over TLS, in each of its moods.
#include "cloud_server.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <future>

#include "cloud_checks.h"
#include "lab.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

constexpr const char* kSerial = "LAB000000000001";

class CloudServerTest : public testing::Test {
 protected:
    // The answer to a request: status and body, or "nothing".
    std::string post(const std::string& body) const {
        httplib::SSLClient client("qa.dro.localhost", cloud_.port());
        client.set_hostname_addr_map({{"qa.dro.localhost", "127.0.0.1"}});
        client.set_ca_cert_path(bundle_);
        client.enable_server_certificate_verification(true);
        const auto result = client.Post("/transactionAck/", {{"X-DreamFactoryAPIKey", provisioning::kNonProductionKey}},
                                        body, "application/json");
        return result ? std::to_string(result->status) + " " + result->body : "nothing";
    }

    std::string rightRequest() const {
        const std::string now = std::to_string(std::time(nullptr));
        return R"({"token":")" + expectedToken(kSerial, now) + R"(","ePOCHTimeStamp":")" + now +
               R"(","serialNumber":")" + kSerial +
               R"(","transactionId":"t","transactionStatus":"1","failureReason":"Success"})";
    }

    TemporaryFolder folder_;
    const std::string bundle_ = folder_.path() / "ca.crt";
    Timeline timeline_;
    CloudRecord record_;
    CloudServer cloud_{timeline_, record_, kSerial, bundle_};
};

TEST_F(CloudServerTest, DoesNotBelieveAWrongRequestInAnyMood) {
    cloud_.behave(Mood::Error, 1);
    EXPECT_EQ(post("{}"), R"(400 {"status":0,"message":"serialNumber is missing or not a string"})");
    ASSERT_EQ(record_.mark(), 1U);
    EXPECT_FALSE(record_.since(0).front()->good());
    EXPECT_TRUE(post(rightRequest()).starts_with("500 ")) << "the mood was used up by a wrong request";
}

TEST_F(CloudServerTest, StallsUntilTheMoodChangesOrItGoesDown) {
    for (const bool down : {false, true}) {
        cloud_.behave(Mood::Stall);
        const std::size_t from = record_.mark();
        auto answer = std::async(std::launch::async, [this] { return post(rightRequest()); });
        ASSERT_NE(record_.await(from, &CloudRequest::good, milliseconds(5000)), nullptr);
        EXPECT_EQ(answer.wait_for(milliseconds(50)), std::future_status::timeout);
        down ? cloud_.down() : cloud_.behave(Mood::Accept);
        EXPECT_EQ(answer.get(), down ? "nothing" : R"(200 {"status":1})");
    }
    EXPECT_EQ(post(rightRequest()), "nothing");
    cloud_.behave(Mood::Accept);
    cloud_.up();
    EXPECT_EQ(post(rightRequest()), R"(200 {"status":1})") << "on the port that it had";
}

TEST(CloudRecord, ForgetsTheOldestAndKeepsItsPlaces) {
    CloudRecord record;
    for (int i = 0; i < 10003; ++i) {
        record.add(std::make_shared<CloudRequest>());
    }
    EXPECT_EQ(record.mark(), 10003U);
    EXPECT_EQ(record.since(0).size(), 10000U);
    EXPECT_EQ(record.since(10002).size(), 1U);
    const auto any = [](const CloudRequest&) { return true; };
    EXPECT_EQ(record.await(record.mark(), any, milliseconds(1)), nullptr);
}

}  // namespace
}  // namespace lab

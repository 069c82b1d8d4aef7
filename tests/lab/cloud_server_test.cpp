// The simulated cloud as its clients meet it: over TLS, in each of its moods.
#include "cloud_server.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <future>

#include "cloud_checks.h"
#include "lab_provisioning.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

constexpr const char* kSerial = "LAB000000000001";

class CloudServerTest : public testing::Test {
 protected:
    // What a request was answered: status and body, or the word "nothing".
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

    const std::string bundle_ =
        (std::filesystem::temp_directory_path() / ("lab-ca-" + std::to_string(::getpid()) + ".crt")).string();
    Timeline timeline_;
    CloudRecord record_;
    CloudServer cloud_{timeline_, record_, kSerial, bundle_};

    void TearDown() override { std::filesystem::remove(bundle_); }
};

TEST_F(CloudServerTest, AnswersInItsMoodAndAsOftenAsTold) {
    EXPECT_EQ(post(rightRequest()), R"(200 {"status":1})");
    cloud_.behave(Mood::Refuse, 2);
    EXPECT_EQ(post(rightRequest()), R"(200 {"status":0})");
    EXPECT_EQ(post(rightRequest()), R"(200 {"status":0})");
    EXPECT_EQ(post(rightRequest()), R"(200 {"status":1})");
    cloud_.behave(Mood::Empty);
    EXPECT_EQ(post(rightRequest()), "200 ");
    cloud_.behave(Mood::Error);
    EXPECT_TRUE(post(rightRequest()).starts_with("500 {"));
    cloud_.behave(Mood::Garbage);
    EXPECT_TRUE(post(rightRequest()).starts_with("200 <html>"));
    cloud_.behave(Mood::Close);
    EXPECT_EQ(post(rightRequest()), "nothing");
}

TEST_F(CloudServerTest, DoesNotBelieveAWrongRequestInAnyMood) {
    cloud_.behave(Mood::Error, 1);
    EXPECT_EQ(post("{}"), R"(400 {"status":0,"message":"serialNumber is missing or no string"})");
    ASSERT_EQ(record_.mark(), 1U);
    EXPECT_FALSE(record_.since(0).front()->good());
    EXPECT_TRUE(post(rightRequest()).starts_with("500 ")) << "the mood was used up by a wrong request";
}

TEST_F(CloudServerTest, StallsUntilTheMoodChanges) {
    cloud_.behave(Mood::Stall);
    auto answer = std::async(std::launch::async, [this] { return post(rightRequest()); });
    ASSERT_NE(record_.await(
                  0, [](const CloudRequest& request) { return request.good(); }, milliseconds(5000)),
              nullptr);
    EXPECT_EQ(answer.wait_for(milliseconds(50)), std::future_status::timeout);
    cloud_.behave(Mood::Accept);
    EXPECT_EQ(answer.get(), R"(200 {"status":1})");
}

TEST_F(CloudServerTest, IsGoneWhileItIsDownAndKeepsItsPort) {
    cloud_.down();
    EXPECT_EQ(post(rightRequest()), "nothing");
    cloud_.up();
    EXPECT_EQ(post(rightRequest()), R"(200 {"status":1})");
}

TEST_F(CloudServerTest, EndsWhileARequestIsStalled) {
    cloud_.behave(Mood::Stall);
    auto answer = std::async(std::launch::async, [this] { return post(rightRequest()); });
    ASSERT_NE(record_.await(
                  0, [](const CloudRequest& request) { return request.good(); }, milliseconds(5000)),
              nullptr);
    cloud_.down();
    EXPECT_EQ(answer.get(), "nothing");
}

TEST(CloudRecord, FindsWhatCameBeforeAndWaitsForWhatComes) {
    CloudRecord record;
    const auto add = [&](const std::string& endpoint) {
        auto request = std::make_shared<CloudRequest>();
        request->endpoint = endpoint;
        record.add(request);
    };
    const auto named = [](const std::string& endpoint) {
        return [endpoint](const CloudRequest& request) { return request.endpoint == endpoint; };
    };
    add("a");
    EXPECT_NE(record.await(0, named("a"), milliseconds(0)), nullptr);
    EXPECT_EQ(record.await(record.mark(), named("a"), milliseconds(1)), nullptr);
    auto waiting = std::async(std::launch::async, [&] { return record.await(1, named("c"), milliseconds(5000)); });
    add("b");
    add("c");
    EXPECT_NE(waiting.get(), nullptr);
    for (int i = 0; i < 10000; ++i) {  // the oldest are forgotten, and places stay what they were
        add("d");
    }
    EXPECT_EQ(record.mark(), 10003U);
    EXPECT_EQ(record.since(0).size(), 10000U);
    EXPECT_EQ(record.since(10002).size(), 1U);
}

}  // namespace
}  // namespace lab

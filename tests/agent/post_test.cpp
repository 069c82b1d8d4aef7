// The signed request: whom it goes to, how it is signed, whom the agent trusts, what it takes for an answer.
#include <openssl/sha.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>
#include <thread>

#include "agent_test.h"
#include "dro_stop.h"
#include "dro_url.h"
#include "dro_utils.h"
#include "sha256.h"

namespace dro_test {
namespace {

class Post : public AgentTest {
 protected:
    std::size_t post(const std::string& host = "qa.dro.localhost") {
        return dro::curl_post((cloud.base_url(host) + "x/").c_str(), "{}", answer);
    }

    std::optional<std::string> answer;
};

std::string hex(const std::uint8_t* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        std::array<char, 3> pair{};
        std::snprintf(pair.data(), pair.size(), "%02x", bytes[i]);
        text += pair.data();
    }
    return text;
}

std::string our_sha256(const std::string& text) {
    dro::Sha256Context context{};
    std::array<std::uint8_t, dro::kSha256Size> digest{};
    dro::sha256_init(context);
    dro::sha256_update(context, text.data(), text.size());
    dro::sha256_final(context, digest);
    return hex(digest.data(), digest.size());
}

// The examples of FIPS 180-4, and every length around the block's edges against another implementation.
TEST(Sha256, MatchesTheStandard) {
    EXPECT_EQ(our_sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(our_sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    for (std::size_t length = 0; length < 200; ++length) {
        const std::string text(length, 'a');
        std::array<std::uint8_t, 32> expected{};
        SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), expected.data());
        EXPECT_EQ(our_sha256(text), hex(expected.data(), expected.size())) << length;
    }
}

TEST_F(Post, TellsEnvironmentsApart) {
    const struct {
        const char* url;
        int environment;
        const char* said;
    } cases[] = {{"https://qa.dro.localhost/", 0, "Loading droAgent on DEV/QA/STAG\n"},
                 {"https://dev.dro.localhost/", 0, "Loading droAgent on DEV/QA/STAG\n"},
                 {"https://api.dro.localhost/stag.dro.localhost", 0, "Loading droAgent on DEV/QA/STAG\n"},
                 {"https://api.dro.localhost/", 1, "Loading droagent on PROD\n"},
                 {"https://elsewhere.invalid/", -1, "Invalid URL Returning with Error\n"},
                 {"syncCD/", -1, "Invalid URL Returning with Error\n"}};
    for (const auto& c : cases) {
        log.forget();
        EXPECT_EQ(dro::check_server(c.url), c.environment) << c.url;
        EXPECT_TRUE(log.has(c.said)) << c.url;
    }
    EXPECT_EQ(dro::curl_post("syncCD/", "{}", answer), 0U);
    EXPECT_EQ(log.count_starting("(DROagent) - res="), 0U);
}

TEST_F(Post, SignsWithSerialTimeAndSecret) {
    std::array<char, 16> timestamp{};
    std::array<char, 128> token{};
    for (const std::string serial : {"ABC", "0123456789012345678901234567890123456789"}) {
        const auto before = std::time(nullptr);
        ASSERT_EQ(dro::get_token(serial.c_str(), timestamp.data(), token.data(), timestamp.size(), token.size()), 0);
        EXPECT_LE(std::stol(timestamp.data()) - before, 5);
        const std::string input = serial + ":" + timestamp.data() + ":6c61622d6f6e6c792d73656372657421";
        EXPECT_EQ(token.data(), our_sha256(input.substr(0, 63)));
        EXPECT_TRUE(log.has(std::string("TimeStamp : ") + timestamp.data() + "\n"));
    }
    token.fill('#');  // a small buffer gets what fits
    EXPECT_EQ(dro::get_token("ABC", timestamp.data(), token.data(), timestamp.size(), 6), 0);
    EXPECT_EQ(std::string(token.data()).size(), 4U);
    EXPECT_EQ(token[6], '#');
    EXPECT_EQ(dro::get_token("A", timestamp.data(), token.data(), 0, 6), -1);
    EXPECT_EQ(dro::get_token("A", timestamp.data(), token.data(), 16, 0), -1);
    EXPECT_EQ(log.count("Invalid token Length"), 2U);
}

TEST_F(Post, EscapesFreeText) {
    std::array<char, 32> out{};
    EXPECT_EQ(dro::escapeJSON("a\n\"\x01\x96"
                              "b",
                              out.data(), 6),
              0);
    EXPECT_STREQ(out.data(), "a\\n\\\"b");
    EXPECT_EQ(dro::escapeJSON("\b\t\f\r\\\xc3\xa9", out.data(), 8), 0);
    EXPECT_STREQ(out.data(), "\\b\\t\\f\\r\\\\\xc3\xa9");
    EXPECT_EQ(dro::escapeJSON("a", out.data(), 0), -1);
}

TEST_F(Post, SendsItsHeadersOnAConnectionOfItsOwn) {
    EXPECT_EQ(post(), 12U);
    EXPECT_EQ(answer, R"({"status":1})");
    EXPECT_EQ(post("api.dro.localhost"), 12U);
    const auto requests = cloud.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].body, "{}");
    EXPECT_EQ(requests[0].headers.find("Content-Type")->second, "application/json");
    EXPECT_EQ(requests[0].headers.find("X-DreamFactoryAPIKey")->second, "0123456789abcdef0123456789abc");
    EXPECT_EQ(requests[1].headers.find("X-DreamFactoryAPIKey")->second,
              "LABPROD0LABPROD0LABPROD0LABPROD0LABPROD1LABPROD1LABPROD1LABPROD1");
    EXPECT_NE(requests[0].remotePort, requests[1].remotePort);
}

TEST_F(Post, HandsOverWhateverBodyCame) {
    cloud.script("x/", {text_answer(R"({"status":0})", 500), empty_answer(), hang_up()});
    EXPECT_EQ(post(), 12U);
    EXPECT_EQ(answer, R"({"status":0})");
    EXPECT_EQ(post(), 0U);
    EXPECT_EQ(post(), 0U);
    EXPECT_EQ(answer, R"({"status":0})");
    EXPECT_TRUE(log.has("(DROagent) - res= 0x0, HTTP status code = 500\n"));
    EXPECT_EQ(log.count_starting("curl_easy_perform() failed: Transferred a partial file::0x"), 1U);
    EXPECT_EQ(dro::curl_post("https://qa.dro.localhost:1/", "{}", answer), 0U);  // nobody listens
    EXPECT_EQ(log.count_starting("curl_easy_perform() failed: Couldn't connect to server::0x"), 1U);
}

TEST_F(Post, TrustsTheBundleAndNoticesItsChange) {
    EXPECT_EQ(post(), 12U);
    trust(make_identity());  // somebody else's authority
    EXPECT_EQ(post(), 0U);
    trust(identity());
    EXPECT_EQ(post(), 12U);
    EXPECT_EQ(post("evil.qa.dro.localhost"), 0U);
    remove_ca_bundle();
    EXPECT_EQ(post(), 12U);
    EXPECT_EQ(post("evil.qa.dro.localhost"), 0U);
}

TEST_F(Post, GivesUpAStalledTransferAtShutdown) {
    cloud.answer_all(stall());
    std::size_t length = 1;
    std::thread sender([&] { length = post(); });
    ASSERT_EQ(cloud.wait_for(1).size(), 1U);
    dro::request_stop();
    sender.join();
    EXPECT_EQ(length, 0U);
}

TEST_F(Post, CutsEndpointsAtTheirSize) {
    std::string base = cloud.base_url();
    for (const std::size_t length : {112U, 113U}) {
        base.resize(length, '/');
        store.set("Drocfg.DroBaseURL", base);
        start_agent();
        EXPECT_EQ(dro::TRANSACK_API.view(), (base + "transactionAck/").substr(0, 127));
        const auto line = [&base](const std::string& name, const std::string& path) {
            return name + " is " + (base + path).substr(0, 127) + "\n";
        };
        EXPECT_TRUE(
            log.in_order({line("DroBaseUrl", ""), line("BOOT_API", "addJorvDeviceId/"), line("G-API", "syncCD/"),
                          line("TRANS ACK API", "transactionAck/"), line("PUSH BST DATA API", "pushStData/"),
                          line("CIRCLE CUUID API", "pc/circle/cuuid"), line("CIRCLE STATUS API", "pc/circle/status")}));
    }
}

}  // namespace
}  // namespace dro_test

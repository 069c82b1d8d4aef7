// The signed request: its destination, its signature, the trusted certificates and the accepted answers; and the pushes
// of single events and speed tests.
#include <openssl/sha.h>
#include <sys/resource.h>

#include <array>
#include <ctime>
#include <filesystem>

#include "dro_circle.h"
#include "dro_generic_cloud_push.h"
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_push.h"
#include "dro_pushst_cloud.h"
#include "dro_url.h"
#include "dro_utils_escape.h"
#include "dro_utils_post.h"
#include "dro_utils_server.h"
#include "dro_utils_token.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class Post : public AgentTest {
 protected:
    ~Post() override { dro::request_rules() = provisioned; }

    std::size_t post(const std::string& host = "qa.dro.localhost") {
        return dro::curl_post((cloud.base_url(host) + "x/").c_str(), "{}", answer);
    }

    const dro::RequestRules provisioned = dro::request_rules();
    std::optional<std::string> answer;
};

TEST_F(Post, DistinguishesEnvironments) {
    const Cases<const char*, int, const char*> cases{
        {"https://qa.dro.localhost/", 0, "Loading droAgent on DEV/QA/STAG\n"},
        {"https://dev.dro.localhost/", 0, "Loading droAgent on DEV/QA/STAG\n"},
        {"https://api.dro.localhost/stag.dro.localhost", 0, "Loading droAgent on DEV/QA/STAG\n"},
        {"https://api.dro.localhost/", 1, "Loading droagent on PROD\n"},
        {"syncCD/", -1, "Invalid URL Returning with Error\n"}};
    for (const auto& [url, environment, said] : cases) {
        log.forget();
        EXPECT_EQ(dro::check_server(url), environment) << url;
        EXPECT_TRUE(log.has(said)) << url;
    }
    EXPECT_EQ(dro::curl_post("syncCD/", "{}", answer), 0U);
    EXPECT_EQ(log.count_starting("(DROagent) - res="), 0U);
}

// Compared with OpenSSL for every length up to the 63 characters at which the hashed text is cut.
TEST_F(Post, SignsWithSerialTimeAndSecret) {
    std::array<char, 16> timestamp{};
    std::array<char, 128> token{};
    for (std::string serial; serial.size() < 40; serial += static_cast<char>(0xFF - serial.size())) {
        ASSERT_EQ(dro::get_token(serial.c_str(), timestamp.data(), token.data(), timestamp.size(), token.size()), 0);
        EXPECT_NEAR(std::stod(timestamp.data()), static_cast<double>(std::time(nullptr)), 5);
        const std::string all = serial + ":" + timestamp.data() + ":6c61622d6f6e6c792d73656372657421";
        std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
        SHA256(reinterpret_cast<const unsigned char*>(all.data()), std::min<std::size_t>(all.size(), 63),
               digest.data());
        std::string hex;
        for (const unsigned char byte : digest) {
            hex += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
        }
        EXPECT_EQ(token.data(), hex) << serial.size();
        EXPECT_TRUE(log.has(std::string("TimeStamp : ") + timestamp.data() + "\n"));
    }
    EXPECT_EQ(dro::get_token("ABC", timestamp.data(), token.data(), timestamp.size(), 6), 0);
    EXPECT_EQ(std::string(token.data()).size(), 4U) << "truncated to fit";
    EXPECT_EQ(dro::get_token("A", timestamp.data(), token.data(), 0, 6), -1);
    EXPECT_EQ(dro::get_token("A", timestamp.data(), token.data(), 16, 0), -1);
    EXPECT_EQ(log.count("Invalid token Length"), 2U);
}

TEST_F(Post, EscapesFreeText) {
    std::array<char, 32> out{};
    EXPECT_EQ(dro::escapeJSON("a\n\"\x01\x96\b\t\f\r\\\xc3\xa9", out.data(), 12), 0);
    EXPECT_STREQ(out.data(), "a\\n\\\"\\b\\t\\f\\r\\\\\xc3\xa9");
    EXPECT_EQ(dro::escapeJSON("a", out.data(), 0), -1);
}

TEST_F(Post, SendsItsHeadersOnANewConnection) {
    EXPECT_EQ(post(), 12U);
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

TEST_F(Post, ReturnsAnyBody) {
    cloud.script("x/", {text_answer(R"({"status":0})", 500), kEmpty, kHangUp, kReset});
    EXPECT_EQ(post(), 12U);
    EXPECT_EQ(post() + post() + post(), 0U);
    EXPECT_EQ(answer, R"({"status":0})");
    EXPECT_TRUE(log.has("(DROagent) - res= 0x0, HTTP status code = 500\n"));
    EXPECT_EQ(log.count_starting("curl_easy_perform() failed: Transferred a partial file::0x"), 1U);
    EXPECT_EQ(log.count_starting("curl_easy_perform() failed: Failure when receiving data from the peer::0x"), 1U);
    EXPECT_EQ(dro::curl_post("https://qa.dro.localhost:1/", "{}", answer), 0U);  // nothing listens there
    EXPECT_EQ(log.count_starting("curl_easy_perform() failed: Couldn't connect to server::0x"), 1U);
    EXPECT_EQ(provisioned.limit.count(), 0);
    dro::request_rules().limit = std::chrono::milliseconds(100);
    cloud.script("x/", {kStall});
    EXPECT_EQ(post(), 0U);
}

TEST_F(Post, TrustsTheBundleAndDetectsItsChange) {
    trust(make_identity());  // an untrusted authority
    EXPECT_EQ(post(), 0U);
    trust(identity());
    EXPECT_EQ(post(), 12U);
    EXPECT_EQ(post("evil.qa.dro.localhost"), 0U);
    remove_ca_bundle();
    const auto expired = lab::makeServerIdentity({"qa.dro.localhost"}, -1);
    cloud.down();
    cloud.up(expired);
    EXPECT_EQ(post(), 12U) << "without a bundle only the name is checked";
    EXPECT_EQ(post("dev.dro.localhost"), 0U);
    trust(expired);
    EXPECT_EQ(post(), 0U);
}

// A session is resumed only while it is recent, the bundle is unchanged and the last request succeeded.
TEST_F(Post, ResumesATlsSessionOnlyWhileTheTrustIsUnchanged) {
    const auto resumed = [this] {
        cloud.forget();
        EXPECT_EQ(post(), 12U);
        return only_request().resumed;
    };
    EXPECT_FALSE(resumed());
    EXPECT_FALSE(resumed()) << "only a deployment enables resumption";
    dro::request_rules().sessionLife = std::chrono::hours(1);
    EXPECT_FALSE(resumed());
    EXPECT_TRUE(resumed());
    const auto fail = [this] {
        cloud.script("x/", {kHangUp});
        EXPECT_EQ(post(), 0U);
    };
    const auto renew = [] { trust(identity()); };  // the same certificates in a new file
    const std::vector<std::function<void()>> events{renew, remove_ca_bundle, renew, fail};
    for (const auto& event : events) {
        event();
        EXPECT_FALSE(resumed());
        EXPECT_TRUE(resumed());
    }
    dro::request_rules().sessionLife = std::chrono::milliseconds(200);
    EXPECT_TRUE(eventually([&] { return !resumed(); })) << "the session has expired";
}

TEST_F(Post, GoesOutUnverifiedOnlyWithOneLogLinePerCause) {
    const auto expect_cause = [&](const char* error) {
        log.forget();
        EXPECT_EQ(post() + post(), 24U);
        const auto lines = log.texts(4);
        ASSERT_EQ(lines.size(), 1U) << error;
        EXPECT_TRUE(lines[0].starts_with("No bundle of certificates can be read, so the server's is not verified: /"));
        EXPECT_TRUE(lines[0].ends_with(", " + ca_bundle() + ": " + error)) << lines[0];
    };
    EXPECT_FALSE(provisioned.needsCaBundle);
    dro::request_rules().needsCaBundle = true;
    EXPECT_EQ(post(), 12U);
    remove_ca_bundle();
    EXPECT_EQ(post(), 0U);
    EXPECT_EQ(log.count_starting("No bundle of certificates can be read, so nothing is sent: /usr/", 4), 1U);
    EXPECT_EQ(cloud.requests().size(), 1U);
    dro::request_rules() = provisioned;
    expect_cause("No such file or directory");
    std::filesystem::create_symlink(ca_bundle(), ca_bundle());
    expect_cause("Too many levels of symbolic links");
    trust(identity());
    EXPECT_EQ(post(), 12U);
    remove_ca_bundle();
    expect_cause("No such file or directory");
    log.forget();
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit exhausted{4, files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &exhausted);
    EXPECT_EQ(post(), 0U) << "a bundle may be readable";
    setrlimit(RLIMIT_NOFILE, &files);
    EXPECT_EQ(log.count_starting("Cannot open the bundle /usr/", 4), 1U);
    EXPECT_EQ(log.count_starting("(DROagent) - res="), 0U);
}

// A chunked answer after an interim response: bytes of header lines and trailers, of chunk framing, and of the body.
std::string chunked_answer(std::size_t headers, std::size_t framing, std::size_t body) {
    const std::string trailer = "X: " + std::string(3'000, 'x') + "\r\n";
    std::string text = "HTTP/1.1 103 Early Hints\r\nX: " + std::string(20'000, 'x') +
                       "\r\n\r\nHTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\nX: ";
    text.append(headers - text.size() - trailer.size() - 4, 'x') += "\r\n\r\n";
    dro::FixedText<16> size;
    size.format("%zx", body);
    text.append(size.view()).append(";").append(framing - size.view().size() - 10, 'x').append("\r\n");
    return text + std::string(body, 'x') + "\r\n0\r\n" + trailer + "\r\n";
}

TEST_F(Post, LimitsEveryPartOfAnAnswer) {
    const Cases<std::string, std::string> refused{
        {chunked_answer(65'537, 100, 2), "The answer's headers are longer than 65536 bytes\n"},
        {chunked_answer(65'536, 1'048'577, 2), "The answer has more than 1048576 bytes of chunk framing\n"},
        {chunked_answer(65'536, 100, 262'145), "The answer is longer than 262144 bytes\n"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: br\r\n\r\n", "The answer has a transfer coding other than chunked\n"}};
    for (const auto& [bytes, error] : refused) {
        log.forget();
        cloud.script("x/", {raw_answer(bytes)});
        EXPECT_EQ(post(), 0U) << error;
        EXPECT_TRUE(log.has(error, 4)) << error;
        EXPECT_EQ(log.count_starting("curl_easy_perform() failed: ", 4), 1U) << error;
    }
    const auto largest = raw_answer(chunked_answer(65'536, 1'048'576, 262'144));
    cloud.script("x/", {largest, text_answer(std::string(262'145, 'x'))});
    EXPECT_EQ(post(), 262'144U);
    dro::request_rules().largestAnswer = 0;  // no limit
    EXPECT_EQ(post(), 262'145U);
}

TEST_F(Post, IsSentOnlyOverHttps) {
    const std::string host = cloud.base_url().substr(std::string("https://").size());
    for (const std::string scheme : {"http://", "ftp://", "", "HTTPS://"}) {
        const std::size_t sent = scheme == "HTTPS://" ? 1 : 0;
        const std::string said = "Every request will fail: the base URL \"" + scheme + host;
        log.forget();
        store.set("Drocfg.DroBaseURL", scheme + host);
        start_agent();
        EXPECT_EQ(log.count(said + "\" is not an https URL (Unsupported URL scheme)\n", 4), 1 - sent) << scheme;
        EXPECT_EQ(dro::curl_post(dro::BOOT_API.c_str(), "{}", answer), 12 * sent) << scheme;
        EXPECT_EQ(log.count_starting("curl_easy_perform() failed: Unsupported protocol::0x", 4), 1 - sent) << scheme;
    }
}

TEST_F(Post, TruncatesEndpoints) {
    std::string base = cloud.base_url();
    for (const std::size_t length : {112U, 113U}) {
        base.resize(length, '/');
        store.set("Drocfg.DroBaseURL", base);
        start_agent();
        const auto line = [&base](const std::string& name, const std::string& path) {
            return name + " is " + (base + path).substr(0, 127) + "\n";
        };
        EXPECT_TRUE(
            log.in_order({line("DroBaseUrl", ""), line("BOOT_API", "addJorvDeviceId/"), line("G-API", "syncCD/"),
                          line("TRANS ACK API", "transactionAck/"), line("PUSH BST DATA API", "pushStData/"),
                          line("CIRCLE CUUID API", "pc/circle/cuuid"), line("CIRCLE STATUS API", "pc/circle/status")}));
    }
}

constexpr auto kGeneric = dro::pushToCloud_generic;
constexpr auto kSpeedTest = dro::pushTocloud_bstdata;

using Pushes = AgentTest;

TEST_F(Pushes, BodiesAreExact) {
    const auto expect = [&](auto push, const char* type, const std::string& payload, const std::string& rest) {
        cloud.forget();
        store.set("DroStatus.cdilsyncAt", "PERIODIC");
        EXPECT_EQ(push(type, payload.c_str()), push == kGeneric ? 1 : 0) << type;
        const Request request = only_request();
        EXPECT_EQ(request.path, push == kGeneric ? "/syncCD/" : "/pushStData/") << type;
        EXPECT_EQ(after_signature(request.body), rest) << type;
        EXPECT_TRUE(log.has((push == kGeneric ? "CMD is  : " : "CMD is : ") + request.body + "\n")) << type;
    };
    const std::string big = "[" + std::string(300'000, 'x') + "]";
    const std::string longResult = R"({"isp":")" + std::string(600, 'i') + "\"}";
    constexpr std::size_t kSignature = 136;
    expect(kGeneric, "NDN", R"({"a":1})", R"(,"type":"NDN","cd":{"a":1}})");
    expect(kGeneric, "DTN", "no JSON", R"(,"type":"DTN","cd":no JSON})");
    expect(kGeneric, "DTNX", "", R"(,"type":"DTNX","cd":})");
    expect(kGeneric, "UPDATE_CD", "[1]", R"(,"type":"UPDATE_CD","syncAt":"PERIODIC","cdl":[1]})");
    expect(kGeneric, "UPDATE_CDX", big, R"(,"type":"UPDATE_CDX","syncAt":"PERIODIC","cdl":)" + big + "}");
    expect(kSpeedTest, "B", R"({"ul":"1"})", R"(,"type":"B","data":{"ul":"1"}})");
    expect(kSpeedTest, "M", "{}", R"(,"type":"M","data":{}})");
    expect(kSpeedTest, "B", longResult, (R"(,"type":"B","data":)" + longResult).substr(0, 511 - kSignature));
}

TEST_F(Pushes, UnknownTypesAreNotSent) {
    for (const char* type : {"UPDATE", "ndn", "DT", "BB", "b", "Scheduled", ""}) {
        EXPECT_EQ(kGeneric(type, "{}"), 0) << type;
        EXPECT_EQ(kSpeedTest(type, "{}"), 1) << type;
    }
    EXPECT_EQ(log.count("Invalid Event! Not making any call to Cloud!\n", 4), 14U);
    EXPECT_EQ(kGeneric("NDN", nullptr), 1);
    EXPECT_TRUE(log.has("Invalid payload!!\n", 4));
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(Pushes, AnAnswerIsEvaluatedByItsStatus) {
    const Cases<int (*)(const char*), std::string, std::string> judges{
        // the endpoint's response handler, its name in log lines, the prefix of its failure lines
        {dro::processTransAckApiResponse, "Trans ACK API", "\n "},
        {dro::processGenericApiResponse, "G-API", "\n"},
        {dro::processpushdataApiResponse, "pushstdata-API", "\n"},
        {dro::processSyncCDResponse, "SYNC_CD API", "\n "},
        {dro::processCircleSync, "CIRCLE API", "\n "}};
    for (const auto& [judge, name, before] : judges) {
        log.forget();
        EXPECT_EQ(judge(R"({"status":1})") + judge(R"({"status":true})"), 0);
        EXPECT_EQ(log.count("\n" + name + " Status Success response\n", 1), 2U);
        EXPECT_EQ(judge(R"({"status":0})") + judge(R"({"status":"1"})"), -2);
        EXPECT_EQ(log.count(before + name + " Status Failure response\n", 4), 2U);
        EXPECT_EQ(judge(R"({"status":7})"), -1);
        EXPECT_TRUE(log.has("No Status code received...\n", 4));
        EXPECT_EQ(judge(R"({"Status":1})") + judge("no JSON"), 2);
        EXPECT_EQ(log.count(" Parse input string for key status not found\n", 4), 1U);
    }
}

TEST_F(Pushes, EndWithAnAnswerOrAfterThreeAttemptsWithAPauseAfterEach) {
    const Cases<const char*, int, bool> cases{
        {R"({"status":1})", 500, true}, {R"({"status":0})", 200, false}, {"<html>", 502, false}};
    for (const auto& [answer, httpStatus, accepted] : cases) {
        forget();
        cloud.answer_all(text_answer(answer, httpStatus));
        EXPECT_EQ(kGeneric("DTN", "{}"), accepted ? 1 : 0) << answer;
        EXPECT_EQ(kSpeedTest("B", "{}"), 0) << answer;
        EXPECT_EQ(log.count(std::string("G-API called: ") + answer + "\n", 1), 2U);
        EXPECT_EQ(log.has("G-API call Successfull\n\n"), accepted) << answer;
        EXPECT_EQ(log.has("PUSHDATA-API call Successfull\n\n"), accepted) << answer;
        EXPECT_EQ(cloud.requests().size(), 2U) << answer;
    }
    forget();
    cloud.answer_all(kEmpty);
    store.set("DroStatus.cdilsyncAt", "PERIODIC");
    EXPECT_EQ(kGeneric("UPDATE_CD", "[]"), 1);
    expect_three_attempts(true);
    EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), "") << "sent once, even without an answer";
    cloud.forget();
    EXPECT_EQ(kSpeedTest("M", "[]"), 0);
    expect_three_attempts(true);
    EXPECT_EQ(log.count("No response from DRO Cloud\n", 4), 6U);
}

}  // namespace
}  // namespace dro_test

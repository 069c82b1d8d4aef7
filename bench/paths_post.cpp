// One request, and one device record, in this process: the agent's code compared with bare calls.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>

#include "dro_json.h"
#include "dro_utils_post.h"
#include "dro_utils_record.h"
#include "local_agent.h"
#include "paths.h"

namespace bench {
namespace {

constexpr const char* kPath = "transactionAck/";
constexpr int kShortRounds = 300;
constexpr int kFullBundleRounds = 60;
constexpr const char* kSystemBundle = "/etc/ssl/certs/ca-certificates.crt";

constexpr const char* kTransaction = "0f8fad5b-d9cb-469f-a165-70867728950e";

void post_ours(const std::string& url, const std::string& body) {
    std::optional<std::string> answer;
    if (dro::curl_post(url.c_str(), body.c_str(), answer) == 0) {
        throw std::runtime_error("the agent's request failed");
    }
}

Pair take_posts(Router& router, int rounds) {
    const std::string url = router.cloud.base_url() + kPath;
    const std::string body = ack_body(kTransaction);
    const BarePost bare = router.bare_post(kPath);
    Pair pair = in_turn(
        rounds, [&] { return time_of([&] { post_ours(url, body); }); },
        [&] { return time_of([&] { bare.send(body); }); });
    router.cloud.forget();
    return pair;
}

// The agent's requests in succession, with no other work between them that would evict the caches.
Samples take_own_posts(Router& router) {
    const std::string url = router.cloud.base_url() + kPath;
    const std::string body = ack_body(kTransaction);
    post_ours(url, body);  // parses the certificates
    Samples samples;
    for (int round = 0; round < kShortRounds; ++round) {
        samples.add(time_of([&] { post_ours(url, body); }));
    }
    router.cloud.forget();
    return samples;
}

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Replaces the trusted bundle atomically.
void set_bundle(const std::string& text) {
    const std::string path = ca_bundle();
    std::ofstream(path + ".new", std::ios::binary) << text << std::flush;
    std::filesystem::rename(path + ".new", path);
}

// One record, including the JSON tree that it is built in.
void record_ours(int row) {
    const dro::Json device(cJSON_CreateObject());
    dro::getConnectedDeviceData(row, device.get(), dro::kRecordNewDevice);
}

}  // namespace

void measure_post(Report& report) {
    Router router;
    const LocalAgent agent(router);
    report.compare("post, full handshake", take_posts(router, kShortRounds));
    dro::request_rules().sessionLife = std::chrono::hours(1);
    report.compare("post, one certificate", take_posts(router, kShortRounds));
    Pair row;
    row.floor = take_own_posts(router);
    const std::string authority = contents(ca_bundle());
    set_bundle(contents(kSystemBundle) + authority);
    report.compare("post, full bundle", take_posts(router, kFullBundleRounds));
    row.ours = take_own_posts(router);
    report.compare("posts in a row, full bundle against one certificate", row);
    set_bundle(authority);
}

void measure_record(Report& report) {
    constexpr int kRounds = 5'000;
    Router router;
    const LocalAgent agent(router);
    int row = 0;
    report.compare("record of 18 members", in_turn(
                                               kRounds,
                                               [&] {
                                                   row = (row + 1) % kDevices;
                                                   return time_of([&] { record_ours(row); });
                                               },
                                               [&] { return time_of([&] { read_record_bare(router.bare, row); }); }));
}

}  // namespace bench

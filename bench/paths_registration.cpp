// Registration: from the connector's change of state to the request at the cloud.

#include <stdexcept>
#include <thread>

#include "paths.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kPath = "addJorvDeviceId/";
constexpr const char* kDone = "DROStatus.addJorvdeviceIdDone";

// Registers a router that the cloud has not accepted yet. Returns the request's duration and its body.
Clock::duration register_ours(Router& router, std::string& body) {
    router.store.set(kDone, "false");
    router.cloud.script(kPath,
                        {dro_test::text_answer(R"({"status":1,"reset":false,"claimState":true,"syncTime":null})")});
    const auto changed = Clock::now();
    write_uint(router, "JorvagentCfg", "jorv_agent_registered", 1);
    const dro_test::Request request = arrived(router.cloud, 1, kPath).front();
    body = request.body;
    if (!router.store.wait_for(kDone, "true")) {
        throw std::runtime_error("the agent did not process the answer");
    }
    router.cloud.forget();
    std::this_thread::sleep_for(kSettle);
    return request.at - changed;
}

// The floor: the write, the agent's reads before the request (the connector's three fields, four features, the
// registration state), and the request.
Clock::duration register_bare(Router& router, const BarePost& post, const std::string& body) {
    constexpr int kState = 27;
    constexpr int kReads = 8;
    const auto start = Clock::now();
    router.bare.write(kState, 0, "1");
    for (int read = 0; read < kReads; ++read) {
        router.bare.read(read, 0);
    }
    post.send(body);
    const auto received = arrived(router.cloud, 1, kPath).front().at;
    router.cloud.forget();
    std::this_thread::sleep_for(kSettle);
    return received - start;
}

}  // namespace

void measure_registration(Report& report) {
    constexpr int kRounds = 100;
    Router router;
    const RunningAgent agent(router);
    const BarePost post = router.bare_post(kPath);
    std::string body;
    report.compare("registration", in_turn(
                                       kRounds, [&] { return register_ours(router, body); },
                                       [&] { return register_bare(router, post, body); }));
}

}  // namespace bench

// agent_test.h - the fixture of tests that call the agent's code in the test's own process.
#pragma once

#include <gtest/gtest.h>

#include "agent_log.h"
#include "cases.h"
#include "dro_durations.h"
#include "dro_fifo.h"
#include "test_cloud.h"

namespace dro_test {

// A router with an identity, a cloud that it trusts, every log level on, and the agent's start-up as far as the
// endpoints: dal_init, get_hab_info, get_api_url. No dispatcher, no subscription, no link: a test starts what it needs.
// Durations are short. After the test whatever still waits is stopped and the agent is as at its start again.
class AgentTest : public ::testing::Test {
 protected:
    AgentTest();
    ~AgentTest() override;

    // Opens the session and builds the endpoints again, after a test has changed identity or base URL.
    void start_agent();

    // Later looks at the log and at the cloud's requests see only what comes from now on.
    void forget();

    // The one request there was; what is wrong is an expectation that fails, and an empty request.
    Request only_request() const;

    // An envelope for parseUUIDBaseBuffer; `data` is JSON text, or empty for none.
    static std::string envelope(const std::string& uuid, const std::string& command, const std::string& data = "");

    // What was acknowledged, waiting for `count` of them: "UUID STATUS REASON" each, in order of arrival.
    std::vector<std::string> acknowledgements(std::size_t count) const;

    // The cloud's requests are three attempts at one thing, a retry pause apart, and the last is a pause ago, or less.
    void expect_three_attempts(bool pauseAfterLast) const;

    // Takes the oldest event off the queue and hands back its payload.
    static std::string take_payload();
    // Takes every slot of the queue, so that the next event is dropped.
    static void fill_queue();

    TestStore store;
    TestCloud cloud;
    AgentLog log;
    // Those in force: fast enough for tests, slow enough to tell a pause from none.
    dro::Durations durations;
};

// The member `name` of the JSON object `body`, as text (a number or bool as JSON spells it); "" when it has none.
std::string json_value(const std::string& body, const std::string& name);

}  // namespace dro_test

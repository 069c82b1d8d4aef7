// agent_test.h - fixture for tests that call the agent's code in the test process.
#pragma once

#include <gtest/gtest.h>

#include "agent_log.h"
#include "cases.h"
#include "dro_durations.h"
#include "dro_fifo.h"
#include "test_cloud.h"

namespace dro_test {

// A router with an identity, a trusted cloud, every log level enabled, and the agent started up to its endpoints:
// dal_init, get_hab_info, get_api_url. There is no dispatcher, subscription or link; a test starts what it needs.
// Durations are short. Afterwards all waiting threads are stopped and the agent's state is reset.
class AgentTest : public ::testing::Test {
 protected:
    AgentTest();
    ~AgentTest() override;

    // Opens the session and builds the endpoints again, after a test has changed the identity or the base URL.
    void start_agent();

    // Limits later reads of the log and of the cloud's requests to new entries.
    void forget() {
        log.forget();
        cloud.forget();
    }

    // The only request so far. Otherwise an expectation fails and the result is an empty request.
    Request only_request() const {
        const auto all = cloud.requests();
        EXPECT_EQ(all.size(), 1U);
        return all.size() == 1 ? all.front() : Request{};
    }

    // An envelope for parseUUIDBaseBuffer. `data` is JSON text, or empty for none.
    static std::string envelope(const std::string& uuid, const std::string& command, const std::string& data = "") {
        return R"({"UUID":")" + uuid + R"(","cmd":")" + command + (data.empty() ? "\"}" : R"(","data":)" + data + "}");
    }

    // Waits for `count` acknowledgements and returns them as "UUID STATUS REASON", in order of arrival.
    std::vector<std::string> acknowledgements(std::size_t count) const;

    // Expects three attempts of one request, a retry pause apart. `pauseAfterLast`: whether a pause has passed since.
    void expect_three_attempts(bool pauseAfterLast) const;

    // Removes the oldest event from the queue and returns its payload.
    static std::string take_payload() {
        const auto head = dro::isQueueEmpty() ? std::nullopt : dro::wait_for_event();
        dro::dequeue();
        return head ? head->payload : "NO EVENT";
    }
    // Fills every slot of the queue, so that the next event is dropped.
    static void fill_queue() {
        while (dro::enqueue_buf({"NDNEV", "{}"}) == 1) {
        }
    }

    TestStore store;
    TestCloud cloud;
    AgentLog log;
    // The current durations: short, but long enough to distinguish a pause from none.
    dro::Durations durations;
};

// The member `name` of the JSON object `body` as text (numbers and bools in JSON notation); "" when it is missing.
std::string json_value(const std::string& body, const std::string& name);

}  // namespace dro_test

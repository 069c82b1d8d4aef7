// pipeline.h - what the tests of device events, lists and the Circle service share.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "agent_test.h"
#include "dro_fifo.h"
#include "store_spy.h"

namespace dro_test {

using Texts = std::vector<std::string>;

// Fills the device tables at `row` with values that show the row's number.
void add_device(TestStore& store, int row);

// That device's record, byte for byte; under the keys of a list that answers a transaction, or the other ones.
std::string device_record(int row, bool answering = false);

// What follows token, time stamp and serial number in a request's body, the comma included; "UNSIGNED " and the body's
// start when these three are not as they should be.
std::string after_signature(const std::string& body);

// `requests` are three attempts at one thing, a retry pause apart, and `end` is a pause after the last, or less.
void expect_three_attempts(const std::vector<Request>& requests, std::chrono::steady_clock::time_point end,
                           bool pauseAfterLast);

class PipelineTest : public AgentTest {
 protected:
    // Puts other durations in force. While nothing of the agent waits.
    template <typename Change>
    static void set_durations(Change change) {
        dro::Durations durations = short_durations();
        change(durations);
        dro::set_durations(durations);
    }

    // Takes the oldest event off the queue and hands back its payload.
    static std::string take_payload();

    // Takes every slot of the queue, so that the next event is dropped.
    static void fill_queue();
};

}  // namespace dro_test

// pipeline.h - what the tests of device events, lists and the Circle service share.
#pragma once

#include "agent_test.h"
#include "dro_fifo.h"
#include "store_spy.h"

namespace dro_test {

using Texts = std::vector<std::string>;

// Fills the device tables at `row` with values that show the row's number.
void add_device(TestStore& store, int row);

// The same for a device of long texts, whose record is longer than what is kept of it.
void add_wordy_device(TestStore& store, int row);

// The record of a device that add_device() made, byte for byte; under the keys of a list that answers a transaction, or
// the other ones.
std::string device_record(int row, bool answering = false);

// What follows token, time stamp and serial number in a request's body, the comma included; "UNSIGNED " and the body's
// start when these three are not as they should be.
std::string after_signature(const std::string& body);

class PipelineTest : public AgentTest {
 protected:
    PipelineTest() { dro::InitQueue(); }

    // Puts other durations in force. While nothing of the agent waits.
    template <typename Change>
    static void set_durations(Change change) {
        dro::Durations durations = short_durations();
        change(durations);
        dro::set_durations(durations);
    }

    // The cloud's requests are three attempts at one thing, a retry pause apart, and the last is a pause ago, or less.
    void expect_three_attempts(bool pauseAfterLast) const;

    // Takes the oldest event off the queue and hands back its payload.
    static std::string take_payload();

    // Takes every slot of the queue, so that the next event is dropped.
    static void fill_queue();
};

}  // namespace dro_test

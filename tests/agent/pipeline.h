// pipeline.h - what the tests of device events share: devices in the store, signed requests, and the running pipeline.
#pragma once

#include <string>
#include <vector>

#include "agent_test.h"
#include "dro_fifo.h"
#include "store_spy.h"

namespace dro_test {

// Fills the device tables at `row` with texts that end in the row's number.
void add_device(TestStore& store, int row);

// That device's record, byte for byte; with the keys of a list that answers a transaction, or the other ones.
std::string device_record(int row, bool answering = false);

// What follows token, time stamp and serial number in a request's body, the comma included; "UNSIGNED " and the body's
// start when these three are not as they should be.
std::string after_signature(const std::string& body);

class PipelineTest : public AgentTest {
 protected:
    // The subscriptions and the dispatcher, as the store's switches say.
    void start_pipeline(const std::vector<std::pair<std::string, std::string>>& settings);

    // Waits until the dispatcher has looked at `count` events since the log was forgotten.
    bool handled(std::size_t count) const { return log.wait_for("Free'd memory\n", count); }

    // The oldest event's payload, taken off the queue. There must be one.
    static std::string take_payload();

    // Fills the queue's last slot, so that the next event is dropped.
    static void fill_queue();
};

}  // namespace dro_test

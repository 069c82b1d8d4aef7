// pipeline.h - devices in the store, and their records and other bodies as sent to the cloud.
#pragma once

#include "agent_test.h"
#include "store_spy.h"

namespace dro_test {

using Texts = std::vector<std::string>;

// Fills row `row` of the device tables with values derived from the row number.
void add_device(TestStore& store, int row);

// Same, with long texts: the device's record exceeds the agent's record limit.
void add_wordy_device(TestStore& store, int row);

// The exact record of a device made by add_device(). The keys differ in lists that answer a transaction.
std::string device_record(int row, bool answering = false);

// The rest of a request body after token, time stamp and serial number, including the comma. "UNSIGNED " and the start
// of the body when one of the three is invalid.
std::string after_signature(const std::string& body);

}  // namespace dro_test

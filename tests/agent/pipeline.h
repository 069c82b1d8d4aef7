// pipeline.h - devices in the store, and how their records and other bodies look to the cloud.
#pragma once

#include "agent_test.h"
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

}  // namespace dro_test

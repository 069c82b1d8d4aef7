// dro_utils_record.h - the connected-device record: one device's members, read from the device tables. Any thread.
#pragma once

#include <cJSON.h>

#include <cstddef>
#include <cstdint>

#include "dro_fifo.h"

namespace dro {

// The purpose of a record. A record for a list that answers a transaction (kRecordListSync while one is pending) has
// that answer's keys. All other records are alike.
inline constexpr int kRecordNewDevice = 0;
inline constexpr int kRecordListSync = 2;
inline constexpr int kRecordUpdate = 4;

// Adds the 18 members of the device at row `index` to `object` (owned by the caller). All members are present
// afterwards, empty where the store had no value.
void getConnectedDeviceData(int index, cJSON* object, int mode);

// getConnectedDeviceData calls these four in this order. Each adds some of the members.
void getMacIpFromTable(cJSON* object, int index, int mode);
void getStringFromTable(cJSON* object, int index);
void getAsciiFromTable(cJSON* object, int index, int mode);
void getEnumFromTable(cJSON* object, int index);

// Maps a state name to the cloud's code, a character in the low byte of `code`. An unknown name is logged and leaves
// `code` unchanged.
void getIntForStateString(const char* text, std::uint16_t& code);

// Reads the pending device-list transaction into `buffer` of `size` bytes.
void getTransAckUuid(char* buffer, std::size_t size);

// Copies `text`, truncated to `maxLength` characters, into the event's payload. Returns the number of characters
// copied. When out of memory, logs it, clears the payload and returns 0.
std::size_t addConnectedDeviceDataToQueue(Event& event, std::size_t maxLength, const char* text);

}  // namespace dro

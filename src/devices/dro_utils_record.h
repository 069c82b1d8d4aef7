// dro_utils_record.h - the connected-device record: one device's members, gathered from the device tables. Any thread.
#pragma once

#include <cJSON.h>

#include <cstddef>
#include <cstdint>

#include "dro_fifo.h"

namespace dro {

// Who builds a record. Only kRecordListSync changes it: with a device-list transaction pending it uses that answer's
// keys.
inline constexpr int kRecordNewDevice = 0;
inline constexpr int kRecordListSync = 2;
inline constexpr int kRecordUpdate = 4;

// Adds the 18 members of the device at row `index` to `object` (owned by the caller). Every member is there afterwards,
// empty where the store had nothing.
void getConnectedDeviceData(int index, cJSON* object, int mode);

// The four readers that it calls, in this order; each adds its rows of the record.
void getMacIpFromTable(cJSON* object, int index, int mode);
void getStringFromTable(cJSON* object, int index);
void getAsciiFromTable(cJSON* object, int index, int mode);
void getEnumFromTable(cJSON* object, int index);

// The cloud's code for a state word, as a character in the low byte of `code`; an unknown word is logged and leaves it.
void getIntForStateString(const char* text, std::uint16_t& code);

// Reads the pending device-list transaction into `buffer` of `size` bytes.
void getTransAckUuid(char* buffer, std::size_t size);

// Makes a copy of `text`, cut at `maxLength` characters, the event's payload. Returns the number of characters copied;
// when memory runs out it is logged, the payload is none, and the result 0.
std::size_t addConnectedDeviceDataToQueue(Event& event, std::size_t maxLength, const char* text);

}  // namespace dro

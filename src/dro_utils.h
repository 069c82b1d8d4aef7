// dro_utils.h - signed requests to the cloud, and the connected-device record. Any thread.
#pragma once

#include <cJSON.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dro_fifo.h"
#include "dro_text.h"

namespace dro {

// ---- Signed requests ----

// Which environment `url` belongs to: 0 non-production, 1 production, -1 unknown.
int check_server(const char* url);

// Makes the time stamp and the token of one request: lower-case hexadecimal SHA-256 of "serial:timestamp:secret", that
// text cut at 63 characters. The sizes count the NUL; a small buffer gets what fits. Returns 0, or -1 when a size is 0.
int get_token(const char* serial, char* timestamp, char* token, std::size_t timestampSize, std::size_t tokenSize);

// A fresh token and time stamp for this router.
struct RequestToken {
    FixedText<16> timestamp;
    FixedText<128> token;
    FixedText<16> serial;
};
RequestToken make_request_token();

// What a deployment settles about its requests.
struct RequestRules {
    std::chrono::milliseconds limit;        // of a whole transfer, 0 for none
    bool needsCaBundle;                     // without one, nothing is sent
    std::size_t largestAnswer;              // in bytes; a longer one is a failed transfer; 0: no limit
    std::chrono::milliseconds sessionLife;  // how long a TLS session is resumed after its full handshake, 0 for never
};

// The rules in force: the provisioned ones, unless tests set others before any thread starts.
const RequestRules& request_rules();
void set_request_rules(const RequestRules& rules);

// Posts the JSON text `body` to `url` over HTTPS, on a connection of its own, and waits for the answer as long as the
// server takes unless request_rules() says otherwise; the connection is bounded (3 s), and a stop of the process ends
// the wait. Returns the length of the answer's body, whatever its HTTP status, and puts it into `response`; 0 when
// there is none (no transfer, or an empty body), which leaves `response` as it was. `httpStatus`, if given, receives
// the HTTP status code, 0 when none arrived.
std::size_t curl_post(const char* url, const char* body, std::optional<std::string>& response,
                      long* httpStatus = nullptr);

// Escapes `length` bytes of `source` for a JSON text into `destination`, which holds at least 2 * length + 1 bytes.
// Control bytes without a short escape are dropped, and so is byte 0x96. Returns 0, or -1 for a null text or a length
// of 0.
int escapeJSON(const char* source, char* destination, std::size_t length);

// ---- The connected-device record ----

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

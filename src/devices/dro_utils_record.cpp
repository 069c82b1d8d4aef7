// The connected-device record: one device's members, read from the device tables.
#include <array>
#include <cstring>
#include <new>
#include <string_view>

#include "dro_fields.h"
#include "dro_log.h"
#include "dro_utils_record.h"

namespace dro {
namespace {

using ValueText = FixedText<128>;

// One member: its source and its key. `otherKey`, if set, replaces `key` unless the record is part of a list that
// answers a transaction.
struct Row {
    const char* table;
    const char* field;
    const char* key;
    const char* otherKey = nullptr;
};

constexpr std::array<Row, 3> kAddressRows{{
    {"DeviceIdList", "DeviceMac", "cdMac", "mac"},
    {"Dilsignature", "DeviceIP", "cdIp", "cdIP"},
    {"ConnectDeviceinfo", "ConnAPMac", "connApMac"},
}};
constexpr const char* kIpTable = "Dilsignature";
constexpr std::array<Row, 6> kStringRows{{
    {"DeviceIdList", "DeviceDisplayName", "cdName"},
    {"DeviceIdList", "DeviceDisplayModel", "cdModel"},
    {"DeviceIdList", "DisplayType", "cdType"},
    {"DeviceIdList", "DeviceDisplayBrand", "cdBrand"},
    {"General", "DeviceName", "cdNetworkInfo"},
    {"DeviceIdList", "DisplayType", "cddisplayType"},
}};
constexpr std::array<Row, 6> kAsciiRows{{
    {"Dilsignature", "DeviceConnectionInterface", "cdConnInterface", "cdConnectionInterface"},
    {"ConnectDeviceinfo", "ConnSSID", "connSsid"},
    {"ConnectDeviceinfo", "DownloadBW", "downloadBw"},
    {"ConnectDeviceinfo", "UploadBW", "uploadBw"},
    {"ConnectDeviceinfo", "DeviceSignalStrength", "deviceSignalStrength"},
    {"ConnectDeviceinfo", "DeviceLinkRate", "deviceLinkRate"},
}};
constexpr std::array<Row, 3> kEnumRows{{
    {"Dilsignature", "Devicestate", "cdStatus"},
    {"Dilsignature", "IsTagged", "cdTaggedStatus"},
    {"Dilsignature", "AllowOrBlock", "cdBlockedStatus"},
}};

// `key` must be a constant: the object does not copy it.
void add_member(cJSON* object, const char* key, const char* value) {
    cJSON_AddItemToObjectCS(object, key, cJSON_CreateString(value));
}

// The router's name is in a table with a single row.
int row_of(const Row& row, int index) {
    return std::string_view(row.table) == "General" ? 0 : index;
}

// True when the record is part of a list that answers a transaction.
bool answers_transaction(int mode) {
    if (mode != kRecordListSync) {
        return false;
    }
    ValueText uuid;
    getTransAckUuid(uuid.data(), uuid.capacity());
    return !uuid.empty() && uuid != "Noop";
}

const char* key_of(const Row& row, bool answering) {
    return row.otherKey == nullptr || answering ? row.key : row.otherKey;
}

ValueText read_row(TextReader reader, const Row& row, int index) {
    ValueText value;
    showHABErr(__LINE__, row.table, row.field,
               reader(dal_get_handle(), row.table, row_of(row, index), row.field, value.data(), ValueText::capacity()));
    return value;
}

}  // namespace

void getTransAckUuid(char* buffer, std::size_t size) {
    const Field& field = fields::cdilTransUuid;
    showHABErr(__LINE__, field.table, field.name,
               hab_get_ascii(dal_get_handle(), field.table, field.row, field.name, buffer, size));
}

void getMacIpFromTable(cJSON* object, int index, int mode) {
    const bool answering = answers_transaction(mode);
    // Deliberately not cleared between rows: after a failed read the member contains zeros or the previous row's bytes.
    Mac bytes{};
    for (const Row& row : kAddressRows) {
        ValueText value;
        const bool ip = std::string_view(row.table) == kIpTable;
        const auto reader = ip ? hab_get_ipv4 : hab_get_mac;
        showHABErr(__LINE__, row.table, row.field, reader(dal_get_handle(), row.table, index, row.field, bytes.data()));
        if (ip) {
            value.format("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
        } else {
            value.assign(mac_text(bytes).view());
        }
        add_member(object, key_of(row, answering), value.c_str());
    }
}

void getStringFromTable(cJSON* object, int index) {
    for (const Row& row : kStringRows) {
        add_member(object, row.key, read_row(hab_get_string, row, index).c_str());
    }
}

void getAsciiFromTable(cJSON* object, int index, int mode) {
    const bool answering = answers_transaction(mode);
    for (const Row& row : kAsciiRows) {
        add_member(object, key_of(row, answering), read_row(hab_get_ascii, row, index).c_str());
    }
}

void getEnumFromTable(cJSON* object, int index) {
    for (const Row& row : kEnumRows) {
        std::uint16_t code = 0;
        getIntForStateString(read_row(hab_get_enum, row, index).c_str(), code);
        const std::array<char, 2> text{static_cast<char>(code), '\0'};
        add_member(object, row.key, text.data());
    }
}

void getIntForStateString(const char* text, std::uint16_t& code) {
    struct State {
        std::string_view text;
        char code;
    };
    constexpr std::array<State, 8> kStates{{{"DOWN", '0'},
                                            {"allow", '0'},
                                            {"untag", '0'},
                                            {"block", '1'},
                                            {"UP", '1'},
                                            {"both", '1'},
                                            {"online", '2'},
                                            {"offline", '3'}}};
    for (const State& state : kStates) {
        if (state.text == text) {
            code = static_cast<unsigned char>(state.code);
            return;
        }
    }
    LOG_ERROR("[DROAGENT] - Invalid state value %s\n", text);
}

void getConnectedDeviceData(int index, cJSON* object, int mode) {
    getMacIpFromTable(object, index, mode);
    getStringFromTable(object, index);
    getAsciiFromTable(object, index, mode);
    getEnumFromTable(object, index);
}

std::size_t addConnectedDeviceDataToQueue(Event& event, std::size_t maxLength, const char* text) {
    const std::size_t length = ::strnlen(text, maxLength);
    try {
        event.payload.emplace(text, length);
    } catch (const std::bad_alloc&) {
        LOG_ERROR("[DROAGENT] - Failed to allocate memory for payload.\n");
        event.payload.reset();
        return 0;
    }
    return length;
}

}  // namespace dro

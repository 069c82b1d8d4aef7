#include "pipeline.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace dro_test {
namespace {

// A member of a record: its key (in an answer to a transaction, otherwise), the store field of its value, and the value
// as stored and as sent. # is replaced by the row number, @ by the row number in two hexadecimal digits.
struct Member {
    const char* keys[2];
    const char* field;  // null: not a device field
    const char* stored;
    const char* shown;
};
constexpr std::array<Member, 18> kMembers{{
    {{"cdMac", "mac"}, "DeviceIdList.DeviceMac", "0a:00:00:00:00:@", "0A:00:00:00:00:@"},
    {{"cdIp", "cdIP"}, "Dilsignature.DeviceIP", "192.168.1.#", "192.168.1.#"},
    {{"connApMac", "connApMac"}, "ConnectDeviceinfo.ConnAPMac", "0B:00:00:00:00:@", "0B:00:00:00:00:@"},
    {{"cdName", "cdName"}, "DeviceIdList.DeviceDisplayName", "name#", "name#"},
    {{"cdModel", "cdModel"}, "DeviceIdList.DeviceDisplayModel", "model#", "model#"},
    {{"cdType", "cdType"}, "DeviceIdList.DisplayType", "type#", "type#"},
    {{"cdBrand", "cdBrand"}, "DeviceIdList.DeviceDisplayBrand", "brand#", "brand#"},
    {{"cdNetworkInfo", "cdNetworkInfo"}, nullptr, "", "Home router"},
    {{"cddisplayType", "cddisplayType"}, nullptr, "", "type#"},
    {{"cdConnInterface", "cdConnectionInterface"}, "Dilsignature.DeviceConnectionInterface", "wlan#", "wlan#"},
    {{"connSsid", "connSsid"}, "ConnectDeviceinfo.ConnSSID", "ssid#", "ssid#"},
    {{"downloadBw", "downloadBw"}, "ConnectDeviceinfo.DownloadBW", "down#", "down#"},
    {{"uploadBw", "uploadBw"}, "ConnectDeviceinfo.UploadBW", "up#", "up#"},
    {{"deviceSignalStrength", "deviceSignalStrength"}, "ConnectDeviceinfo.DeviceSignalStrength", "signal#", "signal#"},
    {{"deviceLinkRate", "deviceLinkRate"}, "ConnectDeviceinfo.DeviceLinkRate", "rate#", "rate#"},
    {{"cdStatus", "cdStatus"}, "Dilsignature.Devicestate", "UP", "1"},
    {{"cdTaggedStatus", "cdTaggedStatus"}, "Dilsignature.IsTagged", "both", "1"},
    {{"cdBlockedStatus", "cdBlockedStatus"}, "Dilsignature.AllowOrBlock", "block", "1"},
}};

std::string of_row(std::string_view pattern, int row) {
    std::array<char, 8> hexadecimal{};
    std::snprintf(hexadecimal.data(), hexadecimal.size(), "%02X", static_cast<unsigned>(row));
    std::string text;
    for (const char byte : pattern) {
        text += byte == '@' ? hexadecimal.data() : byte == '#' ? std::to_string(row) : std::string(1, byte);
    }
    return text;
}

}  // namespace

void add_device(TestStore& store, int row) {
    for (const Member& member : kMembers) {
        if (member.field != nullptr) {
            store.set(std::string(member.field) + "@" + std::to_string(row), of_row(member.stored, row));
        }
    }
}

void add_wordy_device(TestStore& store, int row) {
    for (const char* field :
         {"DeviceIdList.DeviceDisplayName", "DeviceIdList.DeviceDisplayModel", "DeviceIdList.DisplayType",
          "DeviceIdList.DeviceDisplayBrand", "ConnectDeviceinfo.ConnSSID", "ConnectDeviceinfo.DownloadBW",
          "ConnectDeviceinfo.UploadBW", "ConnectDeviceinfo.DeviceLinkRate"}) {
        store.set(std::string(field) + "@" + std::to_string(row), std::string(127, 'x'));
    }
}

std::string device_record(int row, bool answering) {
    std::string record;
    for (const Member& member : kMembers) {
        record += (record.empty() ? "{\"" : ",\"") + std::string(member.keys[answering ? 0 : 1]) + "\":\"" +
                  of_row(member.shown, row) + "\"";
    }
    return record + "}";
}

std::string after_signature(const std::string& body) {
    constexpr std::size_t kLength = 136;  // with all 64 digits of the token and all 10 of the time stamp
    int length = 0;
    std::sscanf(body.c_str(),
                "{\"token\":\"%*64[0-9a-f]\",\"ePOCHTimeStamp\":\"%*10[0-9]\",\"serialNumber\":\"FSN0123456789\"%n",
                &length);
    return static_cast<std::size_t>(length) == kLength ? body.substr(kLength) : "UNSIGNED " + body.substr(0, kLength);
}

}  // namespace dro_test

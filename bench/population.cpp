#include "population.h"

#include <array>
#include <cstdio>

namespace bench {
namespace {

// A device with values of typical length. # is replaced by the row.
struct Value {
    const char* field;
    const char* text;
};
constexpr std::array<Value, 13> kDevice{{
    {"DeviceIdList.DeviceDisplayName", "Living room speaker #"},
    {"DeviceIdList.DeviceDisplayModel", "Model #"},
    {"DeviceIdList.DisplayType", "Speaker"},
    {"DeviceIdList.DeviceDisplayBrand", "Brand"},
    {"DeviceIdList.DeviceTypeOstra", "Speaker"},
    {"DeviceIdList.DisplayNameOstra", "speaker-#"},
    {"Dilsignature.DeviceConnectionInterface", "wlan0"},
    {"Dilsignature.Devicestate", "UP"},
    {"ConnectDeviceinfo.ConnSSID", "Home network"},
    {"ConnectDeviceinfo.DownloadBW", "104857600"},
    {"ConnectDeviceinfo.UploadBW", "10485760"},
    {"ConnectDeviceinfo.DeviceSignalStrength", "-58"},
    {"ConnectDeviceinfo.DeviceLinkRate", "866"},
}};

}  // namespace

std::string of_row(std::string_view text, int row) {
    std::string result(text);
    if (const auto mark = result.find('#'); mark != std::string::npos) {
        result.replace(mark, 1, std::to_string(row));
    }
    return result;
}

Values population() {
    Values values;
    for (int row = 0; row < kDevices; ++row) {
        const std::string place = "@" + std::to_string(row);
        for (const Value& value : kDevice) {
            values.emplace_back(value.field + place, of_row(value.text, row));
        }
        values.emplace_back("DeviceIdList.DeviceMac" + place, mac_of(row));
        values.emplace_back("ConnectDeviceinfo.ConnAPMac" + place, "02:00:5E:00:54:00");
        values.emplace_back("Dilsignature.DeviceIP" + place, "192.168.1." + std::to_string(row));
    }
    return values;
}

std::string mac_of(int row) {
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "02:00:5E:00:53:%02X", static_cast<unsigned>(row) & 0xFFU);
    return text.data();
}

}  // namespace bench

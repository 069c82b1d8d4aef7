#include "pipeline.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

#include "dro_url.h"

namespace dro_test {
namespace {

std::string numbered(const char* format, int row) {
    std::array<char, 64> text{};
    // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): the formats stand below
    std::snprintf(text.data(), text.size(), format, row);
    return text.data();
}

// Takes `literal` off the front of `text`.
bool skip(std::string_view& text, std::string_view literal) {
    if (!text.starts_with(literal)) {
        return false;
    }
    text.remove_prefix(literal.size());
    return true;
}

bool skip_all(std::string_view& text, std::size_t count, int (*kind)(int)) {
    if (text.size() < count || !std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(count),
                                            [kind](unsigned char byte) { return kind(byte) != 0; })) {
        return false;
    }
    text.remove_prefix(count);
    return true;
}

int is_lower_hex(int byte) {
    return std::isxdigit(byte) != 0 && std::isupper(byte) == 0 ? 1 : 0;
}

}  // namespace

void add_device(TestStore& store, int row) {
    const std::string at = "@" + std::to_string(row);
    const auto text = [row](const char* name) { return name + std::to_string(row); };
    store.set_all({{"DeviceIdList.DeviceMac" + at, numbered("0A:00:00:00:00:%02X", row)},
                   {"Dilsignature.DeviceIP" + at, numbered("192.168.1.%d", row)},
                   {"ConnectDeviceinfo.ConnAPMac" + at, numbered("0B:00:00:00:00:%02X", row)},
                   {"DeviceIdList.DeviceDisplayName" + at, text("name")},
                   {"DeviceIdList.DeviceDisplayModel" + at, text("model")},
                   {"DeviceIdList.DisplayType" + at, text("type")},
                   {"DeviceIdList.DeviceDisplayBrand" + at, text("brand")},
                   {"Dilsignature.DeviceConnectionInterface" + at, text("wlan")},
                   {"ConnectDeviceinfo.ConnSSID" + at, text("ssid")},
                   {"ConnectDeviceinfo.DownloadBW" + at, text("down")},
                   {"ConnectDeviceinfo.UploadBW" + at, text("up")},
                   {"ConnectDeviceinfo.DeviceSignalStrength" + at, text("signal")},
                   {"ConnectDeviceinfo.DeviceLinkRate" + at, text("rate")},
                   {"Dilsignature.Devicestate" + at, "UP"},
                   {"Dilsignature.IsTagged" + at, "both"},
                   {"Dilsignature.AllowOrBlock" + at, "block"}});
}

std::string device_record(int row, bool answering) {
    const std::string n = std::to_string(row) + "\"";
    return std::string(answering ? R"({"cdMac":")" : R"({"mac":")") + numbered("0A:00:00:00:00:%02X\"", row) +
           (answering ? R"(,"cdIp":"192.168.1.)" : R"(,"cdIP":"192.168.1.)") + n +
           numbered(R"(,"connApMac":"0B:00:00:00:00:%02X")", row) + R"(,"cdName":"name)" + n + R"(,"cdModel":"model)" +
           n + R"(,"cdType":"type)" + n + R"(,"cdBrand":"brand)" + n +
           R"(,"cdNetworkInfo":"Home router","cddisplayType":"type)" + n +
           (answering ? R"(,"cdConnInterface":"wlan)" : R"(,"cdConnectionInterface":"wlan)") + n +
           R"(,"connSsid":"ssid)" + n + R"(,"downloadBw":"down)" + n + R"(,"uploadBw":"up)" + n +
           R"(,"deviceSignalStrength":"signal)" + n + R"(,"deviceLinkRate":"rate)" + n +
           R"(,"cdStatus":"1","cdTaggedStatus":"1","cdBlockedStatus":"1"})";
}

std::string after_signature(const std::string& body) {
    std::string_view rest(body);
    if (skip(rest, R"({"token":")") && skip_all(rest, 64, is_lower_hex) && skip(rest, R"(","ePOCHTimeStamp":")") &&
        skip_all(rest, 10, [](int byte) { return std::isdigit(byte); }) && skip(rest, R"(","serialNumber":")") &&
        skip(rest, kSerial) && skip(rest, "\"")) {
        return std::string(rest);
    }
    return "UNSIGNED " + body.substr(0, 200);
}

void PipelineTest::start_pipeline(const std::vector<std::pair<std::string, std::string>>& settings) {
    store.set_all(settings);
    dro::init_devToCld_push_sync();
}

std::string PipelineTest::take_payload() {
    if (dro::isQueueEmpty()) {
        return "NO EVENT";
    }
    const auto head = dro::wait_for_event();
    dro::dequeue();
    return head ? head->payload : "STOPPED";
}

void PipelineTest::fill_queue() {
    dro::InitQueue();
    while (dro::enqueue_buf({"NDNEV", "{}"}) == 1) {
    }
}

}  // namespace dro_test

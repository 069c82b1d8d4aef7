#include "dro_dtn.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "dro_device_index.h"
#include "dro_dispatcher.h"
#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_log.h"
#include "dro_output.h"
#include "dro_threads.h"
#include "dro_utils_escape.h"

namespace dro {
namespace {

constexpr std::size_t kPayloadSize = 256;

// One source of a value, and the text logged before it is read.
struct Source {
    TextReader reader;
    const char* field;
    const char* notFoundBefore;
    bool checked = true;  // log a failed read
};

// Returns the first source that is not empty, escaped for JSON. `Size` includes the NUL.
template <std::size_t Size, std::size_t Count>
std::string first_present(int row, const Source (&sources)[Count], Where where = DRO_HERE) {
    FixedText<Size> value;
    for (const Source& source : sources) {
        if (source.notFoundBefore != nullptr) {
            LOG_TRACE("%s", source.notFoundBefore);
        }
        const int status = source.reader(dal_get_handle(), "DeviceIdList", row, source.field, value.data(), Size);
        log_store_error(source.checked ? status : HAB_OK, where);
        if (!value.empty()) {
            break;
        }
    }
    std::string escaped(2 * Size + 1, '\0');
    escapeJSON(value.data(), escaped.data(), Size);
    escaped.resize(std::strlen(escaped.c_str()));
    return escaped;
}

std::string device_type(int row) {
    return first_present<32>(row,
                             {{hab_get_ascii, "DeviceTypeCustom", nullptr},
                              {hab_get_ascii, "DeviceTypeDPI", "DeviceTypeCustom not present! get DPI type\n"},
                              {hab_get_ascii, "DeviceTypeOstra", "DeviceTypeDPI not present! get default type\n"}});
}

std::string device_name(int row) {
    return first_present<64>(row,
                             {{hab_get_string, "DisplayNameCustom", nullptr},
                              {hab_get_string, "DisplayNameDPI", "DisplayNameCustom not present! get DPI\n"},
                              {hab_get_ascii, "DisplayNameOstra", "DisplayNameDPI not present! get Ostra\n", false}});
}

std::string device_model(int row) {
    return first_present<32>(row,
                             {{hab_get_ascii, "DisplayModelCustom", nullptr},
                              {hab_get_ascii, "DeviceModel", "DisplayModelCustom not present! get default Model\n"}});
}

std::string device_brand(int row) {
    return first_present<32>(row,
                             {{hab_get_ascii, "DisplayBrandCustom", nullptr},
                              {hab_get_ascii, "DeviceBrand", "DisplayBrandCustom not present! get default Brand\n"}});
}

FixedText<20> device_mac(int row) {
    Mac mac{};
    log_store_error(hab_get_mac(dal_get_handle(), "DeviceIdList", row, "DeviceMac", mac.data()));
    return FixedText<20>(mac_text(mac).view());
}

DeviceIndex g_notifier(fields::dtnIndex);

void log_dropped() {
    LOG_ERROR("DTN Publishing Failed! Exiting thread!\n");
}

void start_notification(unsigned index) {
    const Place place = g_notifier.take_place_for(index, "DTN", log_dropped);
    if (!place) {
        return;
    }
    errno = start_detached([index, place] { t_Handler_dtnSync(index); });
    if (errno != 0) {
        print_error("Failed to initialize DTN Sync thread to enqueue fifo\n");
        end_process(1);
    }
    LOG_TRACE("Successful to spawn DTN thread for Device on Index %d\n", static_cast<int>(index));
}

}  // namespace

int init_dtn_dal_sub() {
    on_change(fields::dtnIndex, dtnIndex_cbHandler);
    after_push("DTN", reset_tagged_device);
    return 0;
}

void dtnIndex_cbHandler(void* /*context*/) {
    const unsigned index = g_notifier.read();
    if (index == fields::kNoDevice) {
        LOG_TRACE("Reset for the DTN Index\n");
        return;
    }
    start_notification(index);
}

void reset_tagged_device(const char* /*transaction*/) {
    const unsigned missed = g_notifier.reset();
    if (missed != fields::kNoDevice) {
        start_notification(missed);
    }
}

void t_Handler_dtnSync(unsigned index) {
    LOG_TRACE("Index in DTN t_Handler is %d\n", static_cast<int>(index));
    const int row = static_cast<int>(index);
    const std::string type = device_type(row);
    const std::string name = device_name(row);
    const auto mac = device_mac(row);
    const std::string model = device_model(row);
    const auto state = read_enum<16>({"Dilsignature", "Devicestate", row});
    const std::string brand = device_brand(row);
    const auto network = read_string<64>(fields::DeviceName);

    const bool online = state.starts_with("UP");
    LOG_NOTICE("%s", online ? "Device is Online!\n" : "Device is Offline!\n");
    LOG_TRACE(
        "Publish metadata: \n\tMac: %s, DeviceName: %s, DeviceType:%s, DeviceModel:%s DeviceState: %s, DeviceBrand:%s, "
        "networkInfo:%s\n",
        mac.c_str(), name.c_str(), type.c_str(), model.c_str(), state.c_str(), brand.c_str(), network.c_str());
    FixedText<kPayloadSize> payload;
    payload.format(
        "{\"mac\":\"%s\",\"cdType\":\"%s\",\"cdName\":\"%s\",\"cdModel\":\"%s\",\"cdBrand\":\"%s\","
        "\"cdNetwork\":\"%s\",\"cdStatus\":\"%d\"}",
        mac.c_str(), type.c_str(), name.c_str(), model.c_str(), brand.c_str(), network.c_str(), online ? 1 : 0);
    if (enqueue_buf({"DTN", payload.c_str()}) == 1) {
        LOG_TRACE("DTN Published Successfully, exiting thread!\n");
    } else {
        log_dropped();
    }
}

}  // namespace dro

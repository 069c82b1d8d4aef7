// Records, lists and requests built from store values. The input's texts are the values of the fields in the tables
// below, in the schema's order. One row of the device tables is filled, and a list marks it and up to seven empty rows.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>

#include "agent.h"
#include "dro_bst.h"
#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_dtn.h"
#include "dro_fifo.h"
#include "dro_generic_cloud_push.h"
#include "dro_get_dalfld.h"
#include "dro_get_set_config_push.h"
#include "dro_json.h"
#include "dro_ndn.h"
#include "dro_pushst_cloud.h"
#include "dro_reg.h"
#include "dro_url.h"
#include "dro_utils_record.h"
#include "input.h"

namespace {

constexpr int kRow = 7;
constexpr std::size_t kMembers = 18;
constexpr std::array<std::string_view, 7> kTables{"General",      "JorvagentCfg", "DALHNotifyCDIL",   "BSTResults",
                                                  "DeviceIdList", "Dilsignature", "ConnectDeviceinfo"};

struct Field {
    std::string address;
    std::string type;
    std::size_t longest;
};

std::vector<Field> hostile_fields(hab_session* session) {
    std::vector<Field> fields;
    const auto add = [](const hab_host_field* field, void* context) {
        if (std::find(kTables.begin(), kTables.end(), field->table) != kTables.end()) {
            const std::string row = field->rows > 1 ? "@" + std::to_string(kRow) : "";
            static_cast<std::vector<Field>*>(context)->push_back(
                {std::string(field->table) + "." + field->name + row, field->type, field->longest});
        }
    };
    hab_host_describe(session, add, &fields);
    return fields;
}

// The text's bytes as a little-endian number.
std::uint32_t number(const std::string& text) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < text.size() && i < sizeof value; ++i) {
        value |= std::uint32_t{static_cast<unsigned char>(text[i])} << 8U * i;
    }
    return value;
}

// Converts the text to a value that the store accepts for the field.
std::string value_for(const Field& field, std::string text) {
    if (field.type == "mac" || field.type == "ipv4") {
        const std::uint32_t bits = number(text);
        std::array<char, 18> address{};
        std::snprintf(address.data(), address.size(), field.type == "mac" ? "02:00:%02X:%02X:%02X:%02X" : "%u.%u.%u.%u",
                      bits & 255U, bits >> 8U & 255U, bits >> 16U & 255U, bits >> 24U);
        return address.data();
    }
    if (field.type == "int") {
        return std::to_string(static_cast<std::int32_t>(number(text)));
    }
    if (field.type == "uint") {
        // One row per mask: a list of all rows is slow and covers nothing more.
        return std::to_string(field.address.find("IndexBitMask") == std::string::npos ? number(text)
                                                                                      : number(text) & 1U << kRow);
    }
    text.resize(std::min(text.size(), field.longest));
    if (field.type != "string") {
        std::replace_if(
            text.begin(), text.end(), [](char byte) { return (byte & 0x80) != 0; }, '?');
    }
    return text;
}

void fill_store(fuzz::Store& store, const std::vector<std::string>& texts) {
    static const std::vector<Field> fields = hostile_fields(store.session());
    std::vector<std::pair<std::string, std::string>> values{{"DALHNotifyCDIL.CDILstatus", "complete"},
                                                            {"BSTCfg.BSTStatus", "Complete"}};
    for (std::size_t i = 0; i < fields.size() && i < texts.size(); ++i) {
        if (fields[i].address != "DALHNotifyCDIL.CDILstatus") {
            values.emplace_back(fields[i].address, value_for(fields[i], texts[i]));
        }
    }
    store.set_all(values);
}

void check_masks(const std::string& text) {
    dro::IndexList list{};
    std::size_t count = 0;
    const std::uint32_t mask = number(text);
    dro::search_for_index(mask, 7, count, list);
    fuzz::require(count == static_cast<std::size_t>(std::popcount(mask)));
}

void check_records() {
    for (const int mode : {dro::kRecordNewDevice, dro::kRecordListSync, dro::kRecordUpdate}) {
        const dro::Json record(cJSON_CreateObject());
        dro::getConnectedDeviceData(kRow, record.get(), mode);
        fuzz::require(cJSON_GetArraySize(record.get()) == static_cast<int>(kMembers));
    }
}

// Pushes an event as the dispatcher does. A list that was not truncated is valid JSON whatever its values.
void push(const dro::QueueHead& event) {
    if (event.type == "CDIL") {
        const dro::Json list(cJSON_Parse(event.payload.c_str()));
        fuzz::require(cJSON_IsArray(list.get()) != 0);
        dro::pushToCloud_cdil(event.payload.c_str());
    } else if (event.type == "B") {
        dro::pushTocloud_bstdata("B", event.payload.c_str());
    } else {
        dro::pushToCloud_generic(event.type == "UPDAT" ? "UPDATE_CD" : event.type.c_str(), event.payload.c_str());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Store& store = fuzz::fresh_agent();
    const std::vector<std::string> texts = fuzz::texts(fuzz::bytes(data, size));
    fill_store(store, texts);
    check_masks(texts.front());
    check_records();
    dro::get_hab_info();
    dro::registerDroCloud();
    dro::sendClientStatus("RCLIENT", texts.front().c_str());

    dro::t_Handler_ndnSync(kRow);
    dro::t_Handler_dtnSync(kRow);
    dro::t_Handler_cdUpdate(kRow);
    dro::t_Handler_cdilSync();
    dro::bstStatus_cbHandler(nullptr);
    while (!dro::isQueueEmpty()) {
        push(*dro::wait_for_event());
        dro::dequeue();
    }
    return 0;
}

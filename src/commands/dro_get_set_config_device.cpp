#include "dro_get_set_config_device.h"

#include <array>
#include <cstring>

#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_service.h"
#include "dro_json.h"
#include "dro_log.h"

namespace dro {
namespace {

constexpr int kMostElements = 20;

constexpr Field kBlockMac{"DALHConfig", "blockCdMAC"};
constexpr Field kAllowMac{"DALHConfig", "allowCdMAC"};
constexpr Field kTaggedMac{"DALHConfig", "TaggedDeviceMAC"};
constexpr Field kTagStatus{"DALHConfig", "TagStatus"};
constexpr Field kSpeedTestState{"DALHConfig", "BSTStateuserDRO"};
constexpr Field kDeviceMac{"DALHConfig", "DeviceMAC"};
constexpr Field kDisplayName{"DALHConfig", "DisplayName"};
constexpr Field kDeviceType{"DALHConfig", "DeviceType"};
constexpr Field kDisplayBrand{"DALHConfig", "DisplayBrand"};
constexpr Field kDisplayModel{"DALHConfig", "DisplayModel"};
constexpr Field kMacCount{"DALHprofileMAC", "MACcount"};

bool is(const char* text, const char* expected) {
    return std::strcmp(text, expected) == 0;
}

// Writes the address when the text is valid. Other text is skipped and counts as success.
int write_mac_text(const Field& field, const char* text, Where where = DRO_HERE) {
    const auto mac = parse_mac(text);
    return mac ? write_mac(field, *mac, where) : HAB_OK;
}

int fail(const char* uuid, const char* reason, int result) {
    sendTransactionACK(uuid, kAckFailure, reason);
    return result;
}

// The reason is "Success" even when the trigger failed: the cloud evaluates the status.
void trigger_and_acknowledge(const char* uuid) {
    const int status = trigger_device_service();
    sendTransactionACK(uuid, status == HAB_OK ? kAckSuccess : kAckFailure, "Success");
}

// The last two writes of a command that reports a failure of any of its writes.
bool request_feature(Feature feature) {
    return write_uint(fields::FeatureID, feature) == HAB_OK && trigger_device_service() == HAB_OK;
}

constexpr const char* kStoreFailure = "HAB Transaction not successful";
constexpr const char* kBulkFailure = "failed to set Mac on DALH";

int finish(const char* uuid, Feature feature) {
    if (!request_feature(feature)) {
        return fail(uuid, kStoreFailure, -1);
    }
    sendTransactionACK(uuid, kAckSuccess, "Success");
    return 0;
}

// Writes one member of the list. Returns false when the store rejected it.
bool write_bulk_element(const cJSON* element, int number) {
    const char* text = json_text(element, "cdMac");
    const FixedText<20> mac(text != nullptr ? text : "");
    LOG_TRACE("target_cdmac in block_unblock device is %s\n", mac.c_str());
    FixedText<16> field;
    field.format("ProfileMAC%d", number);
    return write_mac_text({"DALHprofileMAC", field.c_str()}, mac.c_str()) == HAB_OK;
}

}  // namespace

int setDTNSchedule(const char* uuid, const char* /*timeZone*/, const char* /*startTime*/, const char* /*endTime*/) {
    LOG_TRACE("In setDTNSchedule, hab APIs to set timezone starttime and endtime here!\n");
    sendTransactionACK(uuid, kAckSuccess, "Success");
    return 0;
}

int setMAConDAL(const char* uuid, const char* /*command*/, const char* cdMac, int tagState) {
    struct TagText {
        const char* value;
        const char* logText;
    };
    constexpr std::array<TagText, 4> kTags{{{"untag", "untag value matched!\n"},
                                            {"both", "tag for both value matched!\n"},
                                            {"online", "online tag value matched!\n"},
                                            {"offline", "offline tag value matched!\n"}}};
    LOG_TRACE("In setMAConDAL, hab APIs to set mac here!\n");
    write_mac_text(kTaggedMac, cdMac);
    write_uint(fields::FeatureID, kFeatureTag);
    const auto tag = static_cast<unsigned>(tagState);
    if (tag >= kTags.size()) {
        LOG_ERROR("Invalid match Skipping writting over dal\n");
        return fail(uuid, "Invalid tagState", 1);
    }
    LOG_TRACE("%s", kTags[tag].logText);
    write_enum(kTagStatus, kTags[tag].value);
    trigger_and_acknowledge(uuid);
    return 0;
}

int setBSTSchedule(const char* uuid, const char* command) {
    LOG_TRACE("In setBSTSchedule, hab APIs to set enable and disable here!\n");
    write_uint(fields::FeatureID, kFeatureSpeedTest);
    if (is(command, "BST_ENABLE")) {
        write_enum(kSpeedTestState, "ENABLE");
    } else if (is(command, "BST_DISABLE")) {
        write_enum(kSpeedTestState, "DISABLE");
    }
    trigger_and_acknowledge(uuid);
    return 0;
}

int setclaimState(const char* uuid, const char* fetchFor) {
    LOG_TRACE("In %s, Setting Claim State to DAL\n", "setclaimState");
    write_bool(fields::claimState, true);
    LOG_TRACE("Setting CDIL transUUID on DroStatus\n");
    write_ascii(fields::cdilTransUuid, uuid);
    LOG_TRACE("Setting CDIL fetchFor on DroStatus\n");
    write_ascii(fields::cdilfetchFor, fetchFor);
    if (request_whole_list() != HAB_OK) {
        sendTransactionACK(uuid, kAckFailure, "Unable to set claim");
    }
    return 0;
}

int customizeCD(const char* uuid, const char* cdMac, const char* name, const char* type, const char* brand,
                const char* model) {
    struct Detail {
        const char* value;
        const char* received;
        const char* missing;
        int (*write)(const Field&, const char*, Where);
        Field field;
    };
    const std::array<Detail, 4> details{{
        {.value = name,
         .received = "Custom CD NAme received is %s\n",
         .missing = "Custom CD NAme received is NULL\n",
         .write = write_string,
         .field = kDisplayName},
        {.value = type,
         .received = "Custom CD Type received is %s\n",
         .missing = "Custom CD Type received is NULL\n",
         .write = write_ascii,
         .field = kDeviceType},
        {.value = brand,
         .received = "Custom CD Brand received is %s\n",
         .missing = "Custom CD Brand received is NULL\n",
         .write = write_ascii,
         .field = kDisplayBrand},
        {.value = model,
         .received = "Custom CD Model received is %s\n",
         .missing = "Custom CD Model received is NULL\n",
         .write = write_ascii,
         .field = kDisplayModel},
    }};
    if (write_mac_text(kDeviceMac, cdMac) != HAB_OK) {
        return fail(uuid, kStoreFailure, -1);
    }
    LOG_TRACE("In customizeCD, hab APIs to set cdMAC Name and Type model and brand!\n");
    for (const Detail& detail : details) {
        if (detail.value == nullptr) {
            LOG_TRACE("%s", detail.missing);
            continue;
        }
        LOG_TRACE(detail.received, detail.value);
        if (detail.write(detail.field, detail.value, DRO_HERE) != HAB_OK) {
            return fail(uuid, kStoreFailure, -1);
        }
    }
    return finish(uuid, kFeatureCustomise);
}

int block_unblock_device(const char* uuid, const char* cdMac, const char* mode) {
    LOG_TRACE("In block_unblock_device, hab APIs to set block unblock here!\n");
    if (const auto mac = parse_mac(cdMac)) {
        if (is(mode, "block")) {
            write_uint(fields::FeatureID, kFeatureBlock);
            write_mac(kBlockMac, *mac);
        } else if (is(mode, "unblock")) {
            write_uint(fields::FeatureID, kFeatureUnblock);
            write_mac(kAllowMac, *mac);
        }
    }
    trigger_and_acknowledge(uuid);
    return 0;
}

int block_unblock_device_bulk(const char* uuid, const cJSON* elements, const char* mode) {
    LOG_TRACE("In block_unblock_device, hab APIs to set block unblock here!\n");
    const int count = cJSON_GetArraySize(elements);
    if (count > kMostElements) {
        return fail(uuid, "Mac Array elements greater than 20", 1);
    }
    if (write_uint(kMacCount, static_cast<std::uint32_t>(count)) != HAB_OK) {
        return fail(uuid, kBulkFailure, 1);
    }
    for (int i = 0; i < count; ++i) {
        if (!write_bulk_element(cJSON_GetArrayItem(elements, i), i + 1)) {
            return fail(uuid, kBulkFailure, 1);
        }
    }
    if (!is(mode, "block") && !is(mode, "unblock")) {
        return fail(uuid, "Invalid Command", 1);
    }
    if (!request_feature(is(mode, "block") ? kFeatureBlockList : kFeatureUnblockList)) {
        return fail(uuid, kBulkFailure, 1);
    }
    LOG_TRACE("Bulk Block unblock function success\n");
    sendTransactionACK(uuid, kAckSuccess, "Success");
    return 0;
}

int remove_cdmac_from_device(const char* uuid, const char* cdMac) {
    if (write_mac_text(kDeviceMac, cdMac) != HAB_OK) {
        return fail(uuid, kStoreFailure, -1);
    }
    return finish(uuid, kFeatureRemove);
}

}  // namespace dro

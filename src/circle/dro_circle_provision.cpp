// Circle: the credentials that the cloud sends after an activation.
#include <array>
#include <cstring>
#include <memory>

#include "dro_circle.h"
#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_log.h"
#include "dro_stop.h"

namespace dro {
namespace {

// One credential. The store field's spelling may differ from the member's.
struct Member {
    const char* name;
    std::size_t longest;
    const char* missingLog;
    const char* missingReason;
    const char* overflowLog;
    const char* storeField;
    const char* storeFailure;
};

// In the order of the checks.
constexpr std::array<Member, 5> kMembers{{
    {
        .name = "circleId",
        .longest = 127,
        .missingLog = "Circle Id is not present!\n",
        .missingReason = "Invalid Argument circleId",
        .overflowLog = "Overflow of circleId buffer\n",
        .storeField = "circleId",
        .storeFailure = "Failed to Set DAL Attr circleId",
    },
    {
        .name = "accessToken",
        .longest = 4095,
        .missingLog = "accessToken is not present!\n",
        .missingReason = "Invalid Argument AccessToken",
        .overflowLog = "Overflow of AccessToken buffer\n",
        .storeField = "accessToken",
        .storeFailure = "Failed to Set DAL Attr accessToken",
    },
    {
        .name = "refreshToken",
        .longest = 2047,
        .missingLog = "refreshToken is not present!\n",
        .missingReason = "Invalid Argument refreshToken",
        .overflowLog = "Overflow of refreshToken buffer\n",
        .storeField = "refreshToken",
        .storeFailure = "Failed to Set DAL Attr refreshToken",
    },
    {
        .name = "localToken",
        .longest = 2047,
        .missingLog = "localToken is not present!\n",
        .missingReason = "Invalid Argument localToken",
        .overflowLog = "Overflow of localToken buffer\n",
        .storeField = "localToken",
        .storeFailure = "Failed to Set DAL Attr localToken",
    },
    {
        .name = "cloudHost",
        .longest = 63,
        .missingLog = "cloudHost is not present!\n",
        .missingReason = "Invalid Argument cloudHost",
        .overflowLog = "Overflow of cloudHost buffer\n",
        .storeField = "cloudhost",
        .storeFailure = "Failed to Set DAL Attr cloudhost",
    },
}};
// The order of the writes: the account is last.
constexpr std::array<std::size_t, 5> kStoreOrder{1, 2, 3, 4, 0};

using Values = std::array<const char*, kMembers.size()>;

void refuse(const char* transUuid, const char* reason) {
    sendTransactionACK(transUuid, kAckFailure, reason);
}

// Returns false when the command is refused: a member is missing (acknowledged) or too long (not acknowledged).
bool take_members(const cJSON* data, const char* transUuid, Values& values) {
    for (std::size_t i = 0; i < kMembers.size(); ++i) {
        const Member& member = kMembers[i];
        values[i] = json_text(data, member.name);
        if (values[i] == nullptr) {
            LOG_NOTICE("%s", member.missingLog);
            refuse(transUuid, member.missingReason);
            return false;
        }
        if (std::strlen(values[i]) > member.longest) {
            LOG_ERROR("%s", member.overflowLog);
            return false;
        }
    }
    return true;
}

// The monitor reports the outcome under the activation's transaction.
void order_provisioning(const char* transUuid, const FixedText<128>& activationUuid, const Values& values,
                        const Place& place) {
    for (const std::size_t i : kStoreOrder) {
        if (write_ascii({"CircleCfg", kMembers[i].storeField}, values[i]) != HAB_OK) {
            refuse(transUuid, kMembers[i].storeFailure);
            return;
        }
    }
    write_enum(fields::actionDROA, "provision");
    const int status = provision_orders().give({.uuid = activationUuid, .place = place});
    LOG_TRACE("Write Action as Provision on circlecfg\n");
    if (status != HAB_OK) {
        refuse(transUuid, "Failed to Set DAL Attr action");
        return;
    }
    LOG_TRACE("Set DROSTATUS Thread to true\n");
    sendTransactionACK(transUuid, kAckSuccess, "Success: Provision running");
}

void answer_provisioned(const char* transUuid) {
    sendTransactionACK(transUuid, kAckSuccess, "Already Provisioned");
    if (sync_circle_status(kStageProvision, kCircleSuccess, transUuid, "Success-Already Provisioned") != 0) {
        LOG_ERROR("Call Circle Status API failed!\n");
    }
}

}  // namespace

void circle_provision(const char* transUuid, const char* command, JsonText data) {
    const auto activationUuid = read_ascii<128>(fields::circle_uuid);
    const auto serviceState = read_enum<16>(fields::activationStatus);
    const auto progress = read_enum<16>(fields::sorbActivationProgress);
    if (progress == "inProgress") {
        refuse(transUuid, "Earlier SORB activation request already in progress");
        return;
    }
    if (activationUuid == transUuid && serviceState.starts_with("provisioned")) {
        answer_provisioned(transUuid);
        return;
    }
    const Json parsed(data ? cJSON_Parse(data.get()) : nullptr);
    if (!parsed) {
        refuse(transUuid, "Failed to Parse Data Object");
        return;
    }
    Values values{};
    if (!take_members(parsed.get(), transUuid, values)) {
        return;
    }
    LOG_TRACE("In circle Provision, hab APIs to set provision meta data here!\n");
    LOG_TRACE("Check if this is a legit call\n");
    if (!read_bool(fields::CircleAct)) {
        refuse(transUuid, "Invalid Operation, Circle Action was not initiated");
    } else if (std::strcmp(command, "PROVISION_CIRCLE") != 0) {
        refuse(transUuid, "Invalid Command for Provision");
    } else if (const Place place = take_order_place(fields::CircleProvision, transUuid)) {
        order_provisioning(transUuid, activationUuid, values, place);
    } else {
        return;  // the activation stays open
    }
    if (!stop_requested()) {
        write_bool(fields::CircleAct, false);
    }
}

}  // namespace dro

// Circle: activation and deactivation orders, and the report of every outcome.
#include <cstring>
#include <string_view>

#include "dro_circle.h"
#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_service.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_stop.h"
#include "dro_url.h"
#include "dro_utils_token.h"

namespace dro {
namespace {

constexpr Field kCircleUuid = fields::circle_uuid;
constexpr Field kDeviceUuid{"CircleCfg", "cuuid"};

using AckText = FixedText<256>;

// An outcome to report.
struct Outcome {
    int result;
    const char* transUuid;
    const char* message;
    FixedText<16> agentAnswer;  // activationStatusDROA when the report began
};

// Posts the device UUID of an activated service. Returns 1 when no attempt was answered.
int report_activated(const Outcome& outcome, const RequestToken& request) {
    LOG_TRACE("Case match for Activation\n");
    const auto deviceUuid = read_ascii<128>(kDeviceUuid);
    LOG_TRACE("TransAck UUID %s\n", outcome.transUuid);
    FixedText<512> body;
    body.format("%s,\"uuid\":\"%s\",\"circleUUID\":\"%s\"}", signed_start(request).c_str(), outcome.transUuid,
                deviceUuid.c_str());
    LOG_TRACE("CMD for Successfull circle CUUID is  : %s\n", body.c_str());
    const EndpointUrl url = CIRCLE_CUUID_API;
    const OnSilence silence = [](int attempt, long /*httpStatus*/) {
        LOG_ERROR("No response from DRO Cloud\n");
        if (attempt == kPostAttempts - 1) {
            write_bool(fields::CircleAct, false);
        }
    };
    const bool answered = post_attempts(
        {url.c_str(), body.c_str()},
        [&](int attempt, const std::optional<std::string>& answer) {
            if (!answer) {  // received, but out of memory: counts as no response
                silence(attempt, 0);
                return false;
            }
            LOG_TRACE("CIRCLE API  %s called\n response: %s\n", url.c_str(), answer->c_str());
            if (processCircleSync(answer->c_str()) == 0) {
                LOG_TRACE(" API call Successfull\n\n");
                updateSorbSyncDoneField();
            }
            return true;
        },
        silence);
    return answered ? 0 : 1;
}

// Uses the Circle agent's own error text when the agent reported a failure.
AckText failure_text(const char* what, const Outcome& outcome) {
    AckText text;
    const bool agentFailed = outcome.agentAnswer.starts_with("fail");
    text.format("%s_%s", what, agentFailed ? read_ascii<128>(fields::errorMessage).c_str() : outcome.message);
    return text;
}

void report_activation_failed(const Outcome& outcome) {
    LOG_ERROR("Activation failed, calling TransAck with msg: Activaion-Failed\n");
    write_bool(fields::CircleAct, false);
    sendTransactionACK(outcome.transUuid, kAckFailure, failure_text("Activation-Failed", outcome).c_str());
}

void report_provisioned_or_deactivated(const Outcome& outcome) {
    LOG_TRACE("Case match for Provision/Deactivation\n");
    AckText text;
    text.format("%s_%s", outcome.message, read_ascii<128>(fields::errorMessage).c_str());
    if (sendTransactionACK(outcome.transUuid, kAckSuccess, text.c_str()) != 0) {
        LOG_ERROR("TransAck API Failed\n");
        return;
    }
    // A provisioning shows in the Circle agent's answer, a deactivation in the service's state.
    const auto serviceState = read_enum<16>(fields::activationStatus);
    if (outcome.agentAnswer.starts_with("provisioned")) {
        write_enum(fields::sorbStatus, "enabled");
    } else if (serviceState.starts_with("deactivated")) {
        write_enum(fields::sorbStatus, "disabled");
    }
}

int report_activation(const Outcome& outcome, const RequestToken& request) {
    if (outcome.result == kCircleSuccess) {
        return report_activated(outcome, request);
    }
    report_activation_failed(outcome);
    return 0;
}

void report_provision(const Outcome& outcome) {
    if (outcome.result == kCircleSuccess) {
        report_provisioned_or_deactivated(outcome);
    } else {
        sendTransactionACK(outcome.transUuid, kAckFailure, failure_text("Provision-Failed", outcome).c_str());
    }
    if (!stop_requested()) {
        write_bool(fields::CircleAct, false);
    }
}

void reset_order(const char* message) {
    write_bool(fields::CircleProvision, false);
    write_enum(fields::activationStatusDROA, "none");
    LOG_TRACE("message = %s\n", message);
    if (std::string_view(message).starts_with("Success-Provisioned")) {
        write_ascii(fields::cdilTransUuid, "");
        write_ascii(fields::cdilsyncAt, "PROVISION");
        setField_SyncCD();
    }
}

}  // namespace

void circle_action(const char* transUuid, const char* command, bool overRide) {
    const auto lastUuid = read_ascii<128>(kCircleUuid);
    const auto deviceUuid = read_ascii<128>(kDeviceUuid);
    if (lastUuid == transUuid && !deviceUuid.empty() && !overRide) {
        LOG_TRACE("In circle Action, circle Already Activated\n");
        sendTransactionACK(transUuid, kAckSuccess, "Already Activated");
        if (sync_circle_status(kStageActivation, kCircleSuccess, transUuid, "Success-Already Activated") != 0) {
            LOG_ERROR("Call Circle Status API failed!\n");
        }
    } else {
        const Place place = take_order_place(fields::CircleAct, transUuid);
        if (!place) {
            return;
        }
        write_bool(fields::CircleAct, false);
        LOG_TRACE("In circle Action, hab APIs to set activate here!\n");
        if (std::strcmp(command, "ACTIVATE_CIRCLE") == 0) {
            setCircleActionDROA(transUuid, "activate", place);
        } else if (std::strcmp(command, "DEACTIVATE_CIRCLE") == 0) {
            setCircleActionDROA(transUuid, "deactivate", place);
        }
    }
    if (!stop_requested()) {
        write_bool(fields::CircleProvision, false);
    }
}

void setCircleActionDROA(const char* transUuid, const char* action, const Place& place) {
    LOG_TRACE("In func %s \n", "setCircleActionDROA");
    const auto progress = read_enum<16>(fields::sorbActivationProgress);
    if (std::strcmp(action, "activate") == 0 && progress == "inProgress") {
        sendTransactionACK(transUuid, kAckFailure, "Earlier SORB activation request already in progress");
        return;
    }
    if (write_enum(fields::actionDROA, action) != HAB_OK) {
        sendTransactionACK(transUuid, kAckFailure, "Failed to Set DAL Attr");
        return;
    }
    write_ascii(kCircleUuid, transUuid);
    activation_orders().give({.uuid = FixedText<128>(transUuid), .place = place});
}

int sync_circle_status(int stage, int result, const char* transUuid, const char* message) {
    LOG_TRACE("Func called for circle API sync for Stage %d\n", stage);
    const RequestToken request = make_request_token();
    const Outcome outcome{result, transUuid, message, read_enum<16>(fields::activationStatusDROA)};
    int unanswered = 0;
    switch (stage) {
        case kStageActivation:
            unanswered = report_activation(outcome, request);
            break;
        case kStageProvision:
            report_provision(outcome);
            break;
        default:
            LOG_NOTICE("No Case Matched! for circle Sync\n");
            break;
    }
    if (!stop_requested()) {
        reset_order(message);
    }
    return unanswered;
}

int processCircleSync(const char* response) {
    return judge_status(response,
                        {"\n CIRCLE API Status Failure response\n", "\nCIRCLE API Status Success response\n"});
}

}  // namespace dro

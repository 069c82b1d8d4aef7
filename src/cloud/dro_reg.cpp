#include "dro_reg.h"

#include "dro_fields.h"
#include "dro_get_dalfld.h"
#include "dro_json.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_threads.h"
#include "dro_url.h"
#include "dro_utils_token.h"

namespace dro {
namespace {

constexpr int kMostIdentityReads = 2;

// Two fields whose names differ only in the case of the first letter: the first is set after success, the second is
// checked when an answer arrives.
constexpr Field kRegistered{"DROStatus", "addJorvdeviceIdDone"};
constexpr Field kAnswerTaken{"DROStatus", "AddJorvdeviceIdDone"};

using RegistrationBody = FixedText<512>;

struct FeatureFlags {
    const char* cdil;
    const char* ndn;
    const char* dtn;
    const char* bst;
};

// A feature whose flag cannot be read is reported as present.
const char* feature_text(const char* name, Where where = DRO_HERE) {
    return read_bool({"droFeature", name}, true, where) ? "true" : "false";
}

FeatureFlags read_features() {
    FeatureFlags flags{};
    flags.cdil = feature_text("CDIL");
    flags.ndn = feature_text("NDN");
    flags.dtn = feature_text("DTN");
    flags.bst = feature_text("BST");
    return flags;
}

void format_body(RegistrationBody& body, const Identity& identity, const RequestToken& request,
                 const FeatureFlags& flags) {
    body.format(
        "{\"serialNo\":\"%s\",\"deviceType\":\"%s\",\"modelNumber\":\"%s\",\"jorvDeviceId\":\"%s\","
        "\"macaddress\":\"%s\",\"ePOCHTimeStamp\":\"%s\",\"token\":\"%s\",\"firmwareVersion\":\"%s\", "
        "\"supportedFeatures\":{\"CDIL\":%s, "
        "\"NewDeviceNoti\":%s,\"DeviceTagging\":%s,\"BackgroudSpeedtest\":%s}}",
        identity.FSN.c_str(), identity.DeviceName.c_str(), identity.DeviceModel.c_str(), identity.JorvID.c_str(),
        identity.DefaultMAC.c_str(), request.timestamp.c_str(), request.token.c_str(), identity.FwRevision.c_str(),
        flags.cdil, flags.ndn, flags.dtn, flags.bst);
}

// Formats the body. Reads the identity again while it is incomplete. Returns false when it stays incomplete.
bool make_payload(RegistrationBody& body, const RequestToken& request, const FeatureFlags& flags) {
    for (int tries = 0;;) {
        const Identity identity = tv();
        if (!identity.FSN.empty() && !identity.JorvID.empty()) {
            LOG_TRACE("Making payload here\n\n");
            format_body(body, identity, request, flags);
            return true;
        }
        if (get_hab_info() != 0) {
            LOG_TRACE("Inside while ...FSN: %s\n JorvID: %s\n", tv().FSN.c_str(), tv().JorvID.c_str());
            LOG_ERROR("*** Somthing is wrong .. Not able to fsn or jorvid or mac***\n");
            return false;
        }
        LOG_TRACE("Retry to get info \n");
        if (++tries == kMostIdentityReads) {
            LOG_ERROR("Reached MAX Retries, will try on next JorvAgent event sink!\n");
            return false;
        }
    }
}

bool take_answer(int /*attempt*/, const std::optional<std::string>& answer) {
    LOG_TRACE("Response from DROCloud: %s\n", answer ? answer->c_str() : "");
    if (!answer || processsRegisterResponse(answer->c_str()) != 0) {
        return false;
    }
    LOG_TRACE("Registration Successful\n\n");
    write_bool(kRegistered, true);
    return true;
}

void log_text_member(const cJSON* answer, const char* name, const char* format) {
    if (const char* text = json_text(answer, name)) {
        LOG_ERROR(format, text);
    }
}

void log_error_details(const cJSON* answer) {
    log_text_member(answer, "errorCode", " errorCode: %s\n ");
    log_text_member(answer, "message", " message: %s\n ");
}

// Returns false when the member is missing. A reset requested by the cloud is only logged.
bool take_reset(const cJSON* answer) {
    const cJSON* reset = json_member(answer, "reset");
    if (cJSON_IsTrue(reset) != 0) {
        LOG_TRACE("\nreset config called\n");
    }
    return reset != nullptr;
}

bool take_claim_state(const cJSON* answer) {
    const cJSON* claimState = json_member(answer, "claimState");
    if (claimState != nullptr) {
        write_bool(fields::claimState, cJSON_IsTrue(claimState) != 0);
    }
    return claimState != nullptr;
}

bool take_sync_time(const cJSON* answer) {
    const cJSON* syncTime = json_member(answer, "syncTime");
    if (syncTime == nullptr) {
        return false;
    }
    const JsonText printed(cJSON_Print(syncTime));
    const std::string text = printed ? printed.get() : "";
    LOG_TRACE("%s", text.c_str());
    if (text == "null" || text.empty()) {
        return true;
    }
    LOG_TRACE("Time_stamp = %s\n", FixedText<32>(text).c_str());
    if (start_detached([text] { start_timer(text); }) != 0) {
        LOG_ERROR("No thread for the daily sync's timer: it stays as it was\n");
    }
    return true;
}

int take_registered(const cJSON* answer) {
    LOG_TRACE("Successfully called addJorvDeviceId...\n");
    log_error_details(answer);
    return take_reset(answer) && take_claim_state(answer) && take_sync_time(answer) ? 0 : -1;
}

int take_refused(const cJSON* answer) {
    LOG_ERROR("addJorvDeviceId not peformed successfully returned error status..\n");
    log_error_details(answer);
    take_reset(answer);
    return -1;
}

}  // namespace

void registerDroCloud() {
    LOG_TRACE("Device Registered with JorvCloud\n\n");
    const FeatureFlags flags = read_features();
    if (read_bool(kRegistered)) {
        LOG_NOTICE("AddjorvDeviceId API already done\n");
        return;
    }
    const RequestToken request = make_request_token();
    LOG_NOTICE("token : %s, timestamp : %s\n", request.token.c_str(), request.timestamp.c_str());
    const EndpointUrl url = BOOT_API;
    LOG_TRACE("FSN: %s\n JorvID: %s\n", tv().FSN.c_str(), tv().JorvID.c_str());
    RegistrationBody body;
    if (!make_payload(body, request, flags)) {
        return;
    }
    LOG_TRACE("CMD is  : %s\n", body.c_str());
    LOG_TRACE("Registering Device to DROCloud\n");
    post_attempts({url.c_str(), body.c_str()}, take_answer, log_no_response);
}

int processsRegisterResponse(const char* body) {
    if (read_bool(kAnswerTaken)) {
        LOG_NOTICE("AddJorvdeviceId Already Done..!\n");
        return -1;
    }
    LOG_TRACE("buff : %s\n", body);
    const Json answer(cJSON_Parse(body));
    const cJSON* status = json_member(answer.get(), "status");
    if (status == nullptr) {
        return -1;
    }
    switch (status->valueint) {
        case 0:
            return take_refused(answer.get());
        case 1:
            return take_registered(answer.get());
        default:
            LOG_ERROR("No Status code received...\n");
            return 0;
    }
}

}  // namespace dro

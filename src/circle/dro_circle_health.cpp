// Circle: forwards changes of the agent's health to the cloud.
#include "dro_circle.h"
#include "dro_durations.h"
#include "dro_get_dalfld.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_store.h"
#include "dro_utils_token.h"

namespace dro {
namespace {

// Returns the body as formatted JSON text. Null, and logged, when out of memory.
JsonText make_body(const char* feature, const char* state) {
    const Identity identity = tv();
    FixedText<32> timestamp;
    FixedText<128> token;
    get_token(identity.FSN.c_str(), timestamp.data(), token.data(), timestamp.capacity(), token.capacity());
    const Json body(cJSON_CreateObject());
    if (!body) {
        LOG_ERROR("(DROAGENT) - Cannot create jobj object\n");
        return nullptr;
    }
    const auto add = [&body](const char* name, const char* value) { cJSON_AddStringToObject(body.get(), name, value); };
    add("token", token.c_str());
    add("ePOCHTimeStamp", timestamp.c_str());
    add("modelNumber", identity.DeviceModel.c_str());
    add("serialNumber", identity.FSN.c_str());
    add("fwVersion", identity.FwRevision.c_str());
    add("jorvDeviceId", identity.JorvID.c_str());
    add("feature", feature);
    add("state", state);
    JsonText text(cJSON_Print(body.get()));
    if (!text) {
        LOG_ERROR("(DROAGENT) - Failure to allocate cjson message buffer\n");
    }
    return text;
}

void forward(const char* feature, const char* state) {
    if (sendClientStatus(feature, state) != 0) {
        LOG_ERROR("(DROAGENT) - response from sendClientStatus is fail\n");
    }
}

void forward_flag(const Field& flag, const char* feature) {
    forward(feature, read_bool(flag) ? "true" : "false");
}

}  // namespace

int sendClientStatus(const char* feature, const char* state) {
    if (feature == nullptr) {
        LOG_ERROR("feature is empty\n");
        return 1;
    }
    if (state == nullptr) {
        LOG_ERROR("state is empty\n");
        return 1;
    }
    FixedText<256> url;
    url.format("%s%s", tv().DroBaseURL.c_str(), "deviceEvents");
    LOG_TRACE("R CLIENT API is %s\n", url.c_str());
    const JsonText body = make_body(feature, state);
    if (!body) {
        return 1;
    }
    LOG_TRACE("(DROAGENT) - Payload for Client Status is %s\n", body.get());
    bool accepted = false;
    post_attempts(
        {url.c_str(), body.get(), Pause::betweenAttempts},
        [&](int /*attempt*/, const std::optional<std::string>& answer) {
            LOG_TRACE("R_CLIENT_API %s called\n response: %s\n", url.c_str(), answer ? answer->c_str() : "");
            if (answer && processCircleSync(answer->c_str()) == 0) {
                LOG_TRACE("R_CLIENT_API call Successful\n\n");
                accepted = true;
            }
            return true;
        },
        [](int attempt, long /*httpStatus*/) {
            LOG_ERROR("(DROAGENT) - No response from DRO Cloud\n");
            if (attempt < kPostAttempts - 1) {
                const auto pause = std::chrono::duration_cast<std::chrono::seconds>(durations().retryPause);
                LOG_TRACE("(DROAGENT) - Sleeping for %d seconds\n", static_cast<int>(pause.count()));
            }
        });
    return accepted ? 0 : 1;
}

void sorbAgentRunning_cbHandler(void* /*context*/) {
    LOG_TRACE("(DROAGENT) - circle Agent running Status callback\n");
    forward_flag({"CircleDebug", "sorbAgentRunning"}, "SORB_agent_running");
}

void sorbProvisioned_cbHandler(void* /*context*/) {
    LOG_TRACE("(DROAGENT) - sorb provision running Status callback\n");
    forward_flag({"CircleDebug", "sorbProvisioned"}, "SORB_provisioned");
}

void rClientStatus_cbHandler(void* /*context*/) {
    LOG_TRACE("(DROAGENT) - rClient Status callback\n");
    const auto status = read_string<16>({"CircleDebug", "rClientStatus"});
    forward("RCLIENT", status == "connected" ? "CONNECTED" : "DISCONNECTED");
}

}  // namespace dro

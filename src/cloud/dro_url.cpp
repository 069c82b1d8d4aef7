#include "dro_url.h"

#include <array>

#include "dro_get_dalfld.h"
#include "dro_log.h"

namespace dro {

EndpointUrl BOOT_API;
EndpointUrl GENERIC_API;
EndpointUrl TRANSACK_API;
EndpointUrl PUSHSTDATA_API;
EndpointUrl CIRCLE_CUUID_API;
EndpointUrl CIRCLE_STATUS_API;

namespace {

struct Endpoint {
    EndpointUrl& url;
    const char* path;
    const char* logFormat;
};

}  // namespace

int get_api_url() {
    const std::array<Endpoint, 6> endpoints{{
        {BOOT_API, "addJorvDeviceId/", "BOOT_API is %s\n"},
        {GENERIC_API, "syncCD/", "G-API is %s\n"},
        {TRANSACK_API, "transactionAck/", "TRANS ACK API is %s\n"},
        {PUSHSTDATA_API, "pushStData/", "PUSH BST DATA API is %s\n"},
        {CIRCLE_CUUID_API, "pc/circle/cuuid", "CIRCLE CUUID API is %s\n"},
        {CIRCLE_STATUS_API, "pc/circle/status", "CIRCLE STATUS API is %s\n"},
    }};
    const auto baseUrl = tv().DroBaseURL;
    for (const Endpoint& endpoint : endpoints) {
        endpoint.url.format("%s%s", baseUrl.c_str(), endpoint.path);
    }
    LOG_TRACE("DroBaseUrl is %s\n", baseUrl.c_str());
    for (const Endpoint& endpoint : endpoints) {
        LOG_TRACE(endpoint.logFormat, endpoint.url.c_str());
    }
    return 0;
}

}  // namespace dro

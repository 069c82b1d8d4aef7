#include "dro_url.h"

#include <array>

#include "dro_bst.h"
#include "dro_cdil.h"
#include "dro_dispatcher.h"
#include "dro_dtn.h"
#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_get_dalfld.h"
#include "dro_log.h"
#include "dro_ndn.h"

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

int init_devToCld_push_sync() {
    const bool cdil = read_bool(fields::cdilSupport);
    const bool dispatcher = read_bool(fields::dispatcherSupport);
    const bool speedTest = read_bool(fields::BSTSupport);
    if (cdil) {
        init_cdil_dal_sub();
    }
    if (dispatcher) {
        init_ndn_dal_sub();
        init_dtn_dal_sub();
        InitQueue();
        init_dispatcher();
    }
    if (speedTest) {
        init_BST_dal_sub();
    }
    return 0;
}

}  // namespace dro

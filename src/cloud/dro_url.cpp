#include "dro_url.h"

#include <curl/curl.h>

#include <array>
#include <memory>
#include <string_view>

#include "dro_get_dalfld.h"
#include "dro_log.h"
#include "dro_utils_transfer.h"

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

// Why requests below `baseUrl` cannot be sent, null if they can. Parsed by libcurl, which also parses the requests'
// URLs.
const char* url_problem(const char* baseUrl) {
    const std::unique_ptr<CURLU, Releases<curl_url_cleanup>> url(curl_url());
    char* scheme = nullptr;
    CURLUcode result = curl_url_set(url.get(), CURLUPART_URL, baseUrl, 0);
    if (result == CURLUE_OK) {
        result = curl_url_get(url.get(), CURLUPART_SCHEME, &scheme, 0);
    }
    const std::unique_ptr<char, Releases<curl_free>> owned(scheme);
    if (result != CURLUE_OK) {
        return curl_url_strerror(result);
    }
    return std::string_view(scheme) == "https" ? nullptr : curl_url_strerror(CURLUE_UNSUPPORTED_SCHEME);
}

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
    if (const char* problem = url_problem(baseUrl.c_str())) {
        LOG_ERROR("Every request will fail: the base URL \"%s\" is not an https URL (%s)\n", baseUrl.c_str(), problem);
    }
    return 0;
}

}  // namespace dro

#include "dro_generic_cloud_push.h"

#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "dro_fields.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_url.h"
#include "dro_utils_token.h"

namespace dro {
namespace {

constexpr std::size_t kFixedFieldsSize = 256;  // room for everything but the payload

// Formats into a buffer sized for the payload. Other members that exceed kFixedFieldsSize are truncated.
std::vector<char> make_body(const RequestToken& request, const char* type, const char* payload,
                            const char* lastMembers) {
    std::vector<char> body(std::strlen(payload) + kFixedFieldsSize);
    std::snprintf(body.data(), body.size(), "%s,\"type\":\"%s\",%s%s}", signed_start(request).c_str(), type,
                  lastMembers, payload);
    return body;
}

}  // namespace

int pushToCloud_generic(const char* type, const char* payload) {
    LOG_TRACE("Inside pushToCloud_generic event is %s \t payload is %s \n", type,
              payload != nullptr ? payload : "(null)");
    if (payload == nullptr) {
        LOG_ERROR("Invalid payload!!\n");
        return 1;
    }
    LOG_TRACE("Inside pushToCloud_generic payload size is %d \n", static_cast<int>(std::strlen(payload)));
    const RequestToken request = make_request_token();
    const std::string_view name(type);
    std::vector<char> body;
    if (name.starts_with("DTN") || name.starts_with("NDN")) {
        body = make_body(request, type, payload, "\"cd\":");
        LOG_TRACE("CMD is  : %s\n", body.data());
    } else if (name.starts_with("UPDATE_CD")) {
        FixedText<64> syncAt;
        syncAt.format("\"syncAt\":\"%s\",\"cdl\":", read_ascii<32>(fields::cdilsyncAt).c_str());
        body = make_body(request, type, payload, syncAt.c_str());
        LOG_TRACE("CMD is  : %s\n", body.data());
        write_ascii(fields::cdilsyncAt, "");
    } else {
        LOG_ERROR("Invalid Event! Not making any call to Cloud!\n");
        return 0;
    }
    const EndpointUrl url = GENERIC_API;
    const Posted posted = post_signed({url.c_str(), body.data()},
                                      {"G-API called: %s\n", "G-API call Successfull\n\n", processGenericApiResponse});
    return posted == Posted::refused ? 0 : 1;
}

int processGenericApiResponse(const char* body) {
    return judge_status(body, {"\nG-API Status Failure response\n", "\nG-API Status Success response\n"});
}

}  // namespace dro

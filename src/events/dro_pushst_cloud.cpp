#include "dro_pushst_cloud.h"

#include <string_view>

#include "dro_log.h"
#include "dro_post.h"
#include "dro_url.h"
#include "dro_utils_token.h"

namespace dro {

int pushTocloud_bstdata(const char* type, const char* payload) {
    const EndpointUrl url = PUSHSTDATA_API;
    LOG_TRACE("Inside pushToCloud_bstdata event is %s \t payload is %s \n", type, payload);
    const RequestToken request = make_request_token();
    const std::string_view kind(type);
    if (kind != "B" && kind != "M") {
        LOG_ERROR("Invalid Event! Not making any call to Cloud!\n");
        return 1;
    }
    FixedText<512> body;
    body.format("%s,\"type\":\"%s\",\"data\":%s}", signed_start(request).c_str(), type, payload);
    LOG_TRACE("CMD is : %s\n", body.c_str());
    post_signed({url.c_str(), body.c_str()},
                {"G-API called: %s\n", "PUSHDATA-API call Successfull\n\n", processpushdataApiResponse});
    return 0;
}

int processpushdataApiResponse(const char* body) {
    return judge_status(body,
                        {"\npushstdata-API Status Failure response\n", "\npushstdata-API Status Success response\n"});
}

}  // namespace dro

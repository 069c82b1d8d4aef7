#include "dro_pushst_cloud.h"

#include <string_view>

#include "dro_log.h"
#include "dro_post.h"
#include "dro_url.h"
#include "dro_utils.h"

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
    body.format("{\"token\":\"%s\",\"ePOCHTimeStamp\":\"%s\",\"serialNumber\":\"%s\",\"type\":\"%s\",\"data\":%s}",
                request.token.c_str(), request.timestamp.c_str(), request.serial.c_str(), type, payload);
    LOG_TRACE("CMD is : %s\n", body.c_str());
    post_attempts(
        {url.c_str(), body.c_str()},
        [](int /*attempt*/, const std::optional<std::string>& answer) {
            LOG_TRACE("G-API called: %s\n", answer ? answer->c_str() : "");
            if (answer && processpushdataApiResponse(answer->c_str()) == 0) {
                LOG_TRACE("PUSHDATA-API call Successfull\n\n");
            }
            return true;
        },
        log_no_response);
    return 0;
}

int processpushdataApiResponse(const char* body) {
    return judge_status(body,
                        {"\npushstdata-API Status Failure response\n", "\npushstdata-API Status Success response\n"});
}

}  // namespace dro

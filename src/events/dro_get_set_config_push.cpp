#include "dro_get_set_config_push.h"

#include <memory>

#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_checkpoint.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_stop.h"
#include "dro_url.h"
#include "dro_utils_token.h"

namespace dro {
namespace {

// The body of a list push. A longer body is truncated and sent all the same.
using ListBody = FixedText<std::size_t{512} * 1024>;

int push_transaction(const RequestToken& request, const char* uuid, const char* payload) {
    const EndpointUrl url = TRANSACK_API;
    const auto fetchFor = read_ascii<16>(fields::cdilfetchFor);
    const auto body = std::make_unique<ListBody>();
    body->format(
        "%s,\"transactionId\":\"%s\",\"transactionStatus\":\"%d\",\"failureReason\":\"%s\",\"fetchFor\":\"%s\", "
        "\"relayData\":{\"cdl\":%s}}",
        signed_start(request).c_str(), uuid, static_cast<int>(kAckSuccess), "Success", fetchFor.c_str(), payload);
    LOG_TRACE("CMD is  : %s\n", body->c_str());
    write_checkpoint(kRequestStarted);
    const Posted posted =
        post_signed({url.c_str(), body->c_str(), Pause::betweenAttempts},
                    {"SYNC_CD API called: %s\n", "SYNC_CD_ API call Successfull\n\n", processSyncCDResponse},
                    [](int /*attempt*/, long httpStatus) {
                        LOG_ERROR("No response from DRO Cloud:HTTP status code = %ld\n", httpStatus);
                        write_checkpoint(kRequestFailed);
                    });
    return posted == Posted::unanswered ? 1 : 0;
}

void push_unsolicited(const RequestToken& request, const char* payload) {
    const auto syncAt = read_ascii<32>(fields::cdilsyncAt);
    const EndpointUrl url = GENERIC_API;
    const auto body = std::make_unique<ListBody>();
    body->format("%s,\"type\":\"CDIL\",\"syncAt\":\"%s\" ,\"cdl\":%s}", signed_start(request).c_str(), syncAt.c_str(),
                 payload);
    LOG_TRACE("CMD is  : %s\n", body->c_str());
    post_signed({url.c_str(), body->c_str()},
                {"G-API called: %s\n", "G-API call Successfull\n\n", processTransAckApiResponse});
    if (!stop_requested()) {
        write_ascii(fields::cdilsyncAt, "");
    }
}

}  // namespace

int pushToCloud_cdil(const char* payload, FixedText<128>* transaction) {
    LOG_TRACE("Inside pushToCloud_cdil function\n");
    const RequestToken request = make_request_token();
    const auto uuid = read_ascii<128>(fields::cdilTransUuid);
    if (!uuid.empty() && uuid != "Noop") {
        if (transaction != nullptr) {
            *transaction = uuid;
        }
        return push_transaction(request, uuid.c_str(), payload);
    }
    push_unsolicited(request, payload);
    return 0;
}

int processSyncCDResponse(const char* response) {
    return judge_status(response,
                        {"\n SYNC_CD API Status Failure response\n", "\nSYNC_CD API Status Success response\n"});
}

}  // namespace dro

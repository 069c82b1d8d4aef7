#include "dro_get_set_config_ack.h"

#include <string_view>

#include "dro_fields.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_url.h"
#include "dro_utils_token.h"

namespace dro {
namespace {

constexpr Field kSorbSyncDone{"CircleDebug", "sorbSyncDone"};

// Writes `state` when it is the current one.
bool note_state(const FixedText<16>& current, std::string_view state, const char* logText) {
    if (current != state) {
        return false;
    }
    LOG_TRACE("%s", logText);
    write_string(kSorbSyncDone, current.c_str());
    return true;
}

}  // namespace

int sendTransactionACK(const char* transactionId, unsigned status, const char* failureReason) {
    const EndpointUrl url = TRANSACK_API;
    LOG_TRACE("Inside sendTransactionACK transaction_uuid is %s \t status is %d \n", transactionId,
              static_cast<int>(status));
    FixedText<512> body;
    body.format("%s,\"transactionId\":\"%s\",\"transactionStatus\":\"%d\",\"failureReason\":\"%s\"}",
                signed_start(make_request_token()).c_str(), transactionId, static_cast<int>(status), failureReason);
    LOG_TRACE("CMD is  : %s\n", body.c_str());
    const Posted posted =
        post_signed({url.c_str(), body.c_str()},
                    {"TRANS-ACK API called: %s\n", "TRANS-ACK API call Successfull\n\n", processTransAckApiResponse});
    if (posted == Posted::accepted) {
        updateSorbSyncDoneField();
    }
    return posted == Posted::unanswered ? 1 : 0;
}

int processTransAckApiResponse(const char* response) {
    return judge_status(response,
                        {"\n Trans ACK API Status Failure response\n", "\nTrans ACK API Status Success response\n"});
}

void updateSorbSyncDoneField() {
    LOG_TRACE("entering into function %s\n", "updateSorbSyncDoneField");
    const auto activation = read_enum<16>(fields::activationStatusDROA);
    LOG_TRACE("(DROAGENT) - field activationStatusDROA %s\n", activation.c_str());
    const auto enabled = read_enum<16>(fields::sorbEnableStatusDROA);
    LOG_TRACE("(DROAGENT) - field sorbEnableStatusDROA %s\n", enabled.c_str());

    // Both write the same field. When both match, the second value remains.
    if (!note_state(activation, "activated", "(DROAGENT) - entering for activated case and setting value\n") &&
        !note_state(activation, "provisioned", "(DROAGENT) - entering for provisioned case and setting value\n")) {
        LOG_TRACE("(DROAGENT) - Circle status is not matching with activated or provisioned\n");
    }
    if (!note_state(enabled, "enabled", "(DROAGENT) - entering for enabled case and setting value\n") &&
        !note_state(enabled, "disabled", "(DROAGENT) - entering for disabled case and setting value\n")) {
        LOG_TRACE("(DROAGENT) - toggle status is not matching with enabled or disabled\n");
    }
}

}  // namespace dro

// The acknowledgement of a transaction, and the small marks that other roles leave in the store.
#include <array>
#include <string_view>

#include "dro_fields.h"
#include "dro_get_set_config.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_url.h"
#include "dro_utils.h"

namespace dro {
namespace {

constexpr Field kSorbSyncDone{"CircleDebug", "sorbSyncDone"};

// Writes `state` when it is the one that was read.
bool note_state(const FixedText<16>& current, std::string_view state, const char* logText) {
    if (!(current == state)) {
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
    const RequestToken request = make_request_token();
    body.format(
        "{\"token\":\"%s\",\"ePOCHTimeStamp\":\"%s\",\"serialNumber\":\"%s\",\"transactionId\":\"%s\","
        "\"transactionStatus\":\"%d\",\"failureReason\":\"%s\"}",
        request.token.c_str(), request.timestamp.c_str(), request.serial.c_str(), transactionId,
        static_cast<int>(status), failureReason);
    LOG_TRACE("CMD is  : %s\n", body.c_str());
    const bool answered = post_attempts(
        {url.c_str(), body.c_str()},
        [](int /*attempt*/, const std::optional<std::string>& answer) {
            LOG_TRACE("TRANS-ACK API called: %s\n", answer ? answer->c_str() : "");
            if (answer && processTransAckApiResponse(answer->c_str()) == 0) {
                LOG_TRACE("TRANS-ACK API call Successfull\n\n");
                updateSorbSyncDoneField();
            }
            return true;
        },
        log_no_response);
    return answered ? 0 : 1;
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

    // Both write the same field; when both match, the second is what remains.
    if (!note_state(activation, "activated", "(DROAGENT) - entering for activated case and setting value\n") &&
        !note_state(activation, "provisioned", "(DROAGENT) - entering for provisioned case and setting value\n")) {
        LOG_TRACE("(DROAGENT) - Circle status is not matching with activated or provisioned\n");
    }
    if (!note_state(enabled, "enabled", "(DROAGENT) - entering for enabled case and setting value\n") &&
        !note_state(enabled, "disabled", "(DROAGENT) - entering for disabled case and setting value\n")) {
        LOG_TRACE("(DROAGENT) - toggle status is not matching with enabled or disabled\n");
    }
}

const char* getCdilDroagentCheckpointMessage(unsigned index) {
    constexpr std::array<const char*, 9> kMessages{
        "CDIL payload creation start",
        "CDIL payload creation done",
        "CDIL Successfull",
        "CDIL notification after dalh processing",
        "CDIL payload enqueue successfull",
        "Update DALH for CDIL processing",
        "FETCH_CD command recieved from cloud",
        "CDIL response initiate curl request to cloud",
        "CDIL curl hit fail",
    };
    return index < kMessages.size() ? kMessages[index] : "Unknown";
}

void write_checkpoint(CdilCheckpoint checkpoint, Where where) {
    write_string(fields::dbgArg1, getCdilDroagentCheckpointMessage(checkpoint), where);
}

int set_module_version_detail(const char* field, const char* version) {
    LOG_TRACE("DroAgent:Entry Function:%s Line:%d input fieldname --:%s input version --:%s\n", __func__, __LINE__,
              field, version);
    return write_string({"DalModuleVersion", field}, version) == HAB_OK ? 0 : 1;
}

}  // namespace dro

// The connected-device list: asking the device service for it, and pushing it to the cloud.
#include <array>
#include <memory>

#include "dro_cdil.h"
#include "dro_fields.h"
#include "dro_get_set_config.h"
#include "dro_log.h"
#include "dro_post.h"
#include "dro_stop.h"
#include "dro_url.h"
#include "dro_utils.h"

namespace dro {
namespace {

// The body of a list push; a longer one is cut and sent as it is.
using ListBody = FixedText<std::size_t{512} * 1024>;

int push_transaction(const RequestToken& request, const char* uuid, const char* payload) {
    const EndpointUrl url = TRANSACK_API;
    const auto fetchFor = read_ascii<16>(fields::cdilfetchFor);
    const auto body = std::make_unique<ListBody>();
    body->format(
        "{\"token\":\"%s\",\"ePOCHTimeStamp\":\"%s\",\"serialNumber\":\"%s\",\"transactionId\":\"%s\","
        "\"transactionStatus\":\"%d\",\"failureReason\":\"%s\",\"fetchFor\":\"%s\", \"relayData\":{\"cdl\":%s}}",
        request.token.c_str(), request.timestamp.c_str(), request.serial.c_str(), uuid, static_cast<int>(kAckSuccess),
        "Success", fetchFor.c_str(), payload);
    LOG_TRACE("CMD is  : %s\n", body->c_str());
    write_checkpoint(kRequestStarted);
    const bool answered = post_attempts(
        {url.c_str(), body->c_str(), Pause::betweenAttempts},
        [](int /*attempt*/, const std::optional<std::string>& answer) {
            LOG_TRACE("SYNC_CD API called: %s\n", answer ? answer->c_str() : "");
            if (answer && processSyncCDResponse(answer->c_str()) == 0) {
                LOG_TRACE("SYNC_CD_ API call Successfull\n\n");
            }
            return true;
        },
        [](int /*attempt*/, long httpStatus) {
            LOG_ERROR("No response from DRO Cloud:HTTP status code = %ld\n", httpStatus);
            write_checkpoint(kRequestFailed);
        });
    return answered ? 0 : 1;
}

void push_unsolicited(const RequestToken& request, const char* payload) {
    const auto syncAt = read_ascii<32>(fields::cdilsyncAt);
    const EndpointUrl url = GENERIC_API;
    const auto body = std::make_unique<ListBody>();
    body->format(
        "{\"token\":\"%s\",\"ePOCHTimeStamp\":\"%s\",\"serialNumber\":\"%s\",\"type\":\"CDIL\","
        "\"syncAt\":\"%s\" ,\"cdl\":%s}",
        request.token.c_str(), request.timestamp.c_str(), request.serial.c_str(), syncAt.c_str(), payload);
    LOG_TRACE("CMD is  : %s\n", body->c_str());
    post_attempts(
        {url.c_str(), body->c_str()},
        [](int /*attempt*/, const std::optional<std::string>& answer) {
            LOG_TRACE("G-API called: %s\n", answer ? answer->c_str() : "");
            if (answer && processTransAckApiResponse(answer->c_str()) == 0) {
                LOG_TRACE("G-API call Successfull\n\n");
            }
            return true;
        },
        log_no_response);
    if (!stop_requested()) {
        write_ascii(fields::cdilsyncAt, "");
    }
}

void request_list(const char* which) {
    write_bool(fields::CDILTrigger, true);
    write_uint(fields::FeatureID, kFeatureList);
    if (which != nullptr) {
        write_enum(fields::CDILRequest, which);
    }
}

}  // namespace

int init_fetch_cd(const char* uuid, unsigned status, const char* fetchFor) {
    constexpr std::array<const char*, 3> kRequests{"occupied", "online", "offline"};
    LOG_TRACE("Setting CDIL timeout on DroStatus !\n");
    list_orders().give({.uuid = FixedText<128>(uuid), .timestamp = read_ascii<16>(fields::cdilTimestamp)});
    LOG_TRACE("Setting CDIL transUUID on DroStatus\n");
    write_ascii(fields::cdilTransUuid, uuid);
    LOG_TRACE("Setting CDIL fetchFor on drostatus\n");
    write_ascii(fields::cdilfetchFor, fetchFor);
    request_list(status < kRequests.size() ? kRequests[status] : nullptr);
    write_checkpoint(kRequested);
    trigger_device_service();
    return 0;
}

int request_whole_list() {
    request_list("occupied");
    return trigger_device_service();
}

void setField_SyncCD() {
    request_whole_list();
}

int pushToCloud_cdil(const char* payload, FixedText<128>* transaction) {
    LOG_TRACE("Inside pushToCloud_cdil function\n");
    const RequestToken request = make_request_token();
    const auto uuid = read_ascii<128>(fields::cdilTransUuid);
    if (!uuid.empty() && !(uuid == "Noop")) {
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

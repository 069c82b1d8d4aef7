// The watch over a list that the cloud asked for: it must reach the cloud in time, or the transaction fails.
#include "dro_cdil.h"
#include "dro_fields.h"
#include "dro_get_set_config.h"
#include "dro_log.h"
#include "dro_monitor.h"

namespace dro {
namespace {

constexpr const char* kRequestType = "FETCH_CD";

// The result line of the debug trail.
void write_result(const Order& order, const char* result) {
    FixedText<64> line;
    line.format("%s,%s,%s", kRequestType, order.timestamp.c_str(), result);
    write_string(fields::dbgArg2, line.c_str());
}

// An unasked-for list leaves its result behind; where the store reports changes only, the same result would not be seen
// again. A monitor that still runs may be about to read it.
void clear_last_result() {
    if (active_monitors() == 0 && !(read_enum<16>(fields::cdilDebugStatus) == "none")) {
        write_enum(fields::cdilDebugStatus, "none");
    }
}

Order last_fetch() {
    clear_last_result();
    return {pending_list_transaction(), read_ascii<16>(fields::cdilTimestamp)};
}

void report_pushed(const Order& order) {
    LOG_TRACE("Cdil Running State is being debug\n");
    if (read_enum<16>(fields::cdilDebugStatus) == "success") {
        LOG_TRACE("Cdil Successful\n");
        write_checkpoint(kListSuccessful);
        write_result(order, "success");
    } else {
        LOG_ERROR("Invalid Response\n");
    }
}

void report_timeout(const Order& order) {
    LOG_ERROR("Cdil status request timeout reached\n");
    write_result(order, "failure");
    write_enum(fields::raCdilTimeout, "true");
    if (sendTransactionACK(order.uuid.c_str(), kAckFailure, "CDIL:Fail-Error timeout") != 0) {
        LOG_ERROR("Failed to send transack for CDIL timeout\n");
    }
}

void report(Waited outcome, const Order& order) {
    switch (outcome) {
        case Waited::signalled:
            report_pushed(order);
            break;
        case Waited::timedOut:
            report_timeout(order);
            break;
        default:
            LOG_ERROR("System Error Occured\n");
            break;
    }
}

void reset(bool /*reported*/) {
    write_bool(fields::cdilTimeout, false);
    write_enum(fields::cdilDebugStatus, "none");
}

void t_Handler_cdilTimeout(const Order& order);

// A list that nobody watches is still pushed: unlike the other monitors, a failed start does not end the process.
const Monitor kListWatch{
    fields::cdilTimeout,
    "CDIL Timeout callback\n",
    "Failed to initialize Thread for cdilTimeout\n",
    false,
    "Successful to spawn thread for cdilTimeout\n",
    "timeoutState Reset to false\n",
    t_Handler_cdilTimeout,
    "Cdil Timeout Monitoring Thread Started!\n",
    "LastCdilTransUUID is %s\n",
    last_fetch,
    mutex_act_lock,
    "Unable to Lock cdilstatus Mutex\n",
    kError,
    timeoutResponse,
    &Durations::listWatch,
    report,
    reset,
};

void t_Handler_cdilTimeout(const Order& order) {
    run_monitor(kListWatch, order);
}

}  // namespace

void cdilTimeout_cbHandler(void* /*context*/) {
    on_flag_change(kListWatch);
}

void cdilDebugStatus_cbHandler(void* /*context*/) {
    LOG_TRACE("CDIL CdilStatus callback\n");
    const auto status = read_enum<16>(fields::cdilDebugStatus);
    read_ascii<128>(fields::cdilTransUuid);
    if (!(status == "success") && !(status == "failure")) {
        LOG_TRACE("cdilDebugStatus field set to none\n");
        return;
    }
    LOG_TRACE("Cdil is Being Success or Failure, sending Thread Signal to Cdilstatus thread\n");
    if (timeoutResponse.signal() != 0) {
        LOG_ERROR("Unable to trigger Cdil Status thread condition\n");
        write_bool(fields::cdilTimeout, false);
    }
}

}  // namespace dro

// The watch of a list requested by the cloud: when the list does not reach the cloud in time, the transaction fails.
#include "dro_cdil.h"
#include "dro_durations.h"
#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_checkpoint.h"
#include "dro_log.h"
#include "dro_monitor.h"
#include "dro_stop.h"

namespace dro {
namespace {

constexpr const char* kRequestType = "FETCH_CD";

// Writes the result line of the debug log.
void write_result(const Order& order, const char* result) {
    FixedText<64> line;
    line.format("%s,%s,%s", kRequestType, order.timestamp.c_str(), result);
    write_string(fields::dbgArg2, line.c_str());
}

// Guards the result field. g_resultIsOwn is true while the field contains a "success" that the agent wrote. The agent
// wakes the watches directly in that case, and the notice of its write must not wake another one.
Mutex g_resultLock;
bool g_resultIsOwn DRO_GUARDED_BY(g_resultLock) = false;

void write_list_result(const char* result, bool own) {
    const MutexLock lock(g_resultLock);
    g_resultIsOwn = write_enum(fields::cdilDebugStatus, result) == HAB_OK && own;
}

// A list without a transaction leaves its result in the field. A store that reports only changes would not report the
// same result again. Not cleared while another watch may still read it.
void clear_last_result() {
    if (list_orders().alive() == 1 && read_enum<16>(fields::cdilDebugStatus) != "none") {
        write_list_result("none", false);
    }
}

Order stored_fetch() {
    return {.uuid = read_ascii<128>(fields::cdilTransUuid), .timestamp = read_ascii<16>(fields::cdilTimestamp)};
}

void report_pushed(const Order& order, bool successful) {
    LOG_TRACE("Cdil Running State is being debug\n");
    if (successful) {
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
    if (sendTransactionACK(order.uuid.c_str(), kAckFailure, "CDIL:Fail-Error timeout") != 0 && !stop_requested()) {
        LOG_ERROR("Failed to send transack for CDIL timeout\n");
    }
}

void report(Waited outcome, const Order& order) {
    switch (outcome) {
        case Waited::answered:
            report_pushed(order, true);
            break;
        case Waited::signalled:
            report_pushed(order, read_enum<16>(fields::cdilDebugStatus) == "success");
            break;
        case Waited::timedOut:
            report_timeout(order);
            break;
        default:
            LOG_ERROR("System Error Occured\n");
            break;
    }
}

void t_Handler_cdilTimeout(const Order& order) {
    LOG_TRACE("Cdil Timeout Monitoring Thread Started!\n");
    LOG_TRACE("LastCdilTransUUID is %s\n", order.uuid.c_str());
    clear_last_result();
    if (!lock_monitor(mutex_act_lock, "Unable to Lock cdilstatus Mutex\n")) {
        return;
    }
    const AdoptedLock held(mutex_act_lock);
    if (wait_and_report(mutex_act_lock, timeoutResponse, order, durations().listWatch,
                        [&order](Waited outcome) { report(outcome, order); })) {
        write_bool(fields::cdilTimeout, false);
        write_list_result("none", false);
    }
}

// Not required, unlike the other monitors: a list without a watch is still pushed.
constexpr OrderKind kListWatch{
    .flag = fields::cdilTimeout,
    .callbackText = "CDIL Timeout callback\n",
    .threadStartedText = "Successful to spawn thread for cdilTimeout\n",
    .threadFailedText = "Failed to initialize Thread for cdilTimeout\n",
    .threadRequired = false,
    .flagResetText = "timeoutState Reset to false\n",
    .monitor = t_Handler_cdilTimeout,
    .storedOrder = stored_fetch,
};

void wake_watch(int signalled) {
    if (signalled != 0) {
        LOG_ERROR("Unable to trigger Cdil Status thread condition\n");
        write_bool(fields::cdilTimeout, false);
    }
}

}  // namespace

Orders& list_orders() {
    static Immortal<Orders> orders(kListWatch);
    return *orders;
}

void report_list_pushed(const char* transaction) {
    write_list_result("success", true);
    if (*transaction != '\0') {
        wake_watch(timeoutResponse.signal_order(transaction));
    }
}

void cdilTimeout_cbHandler(void* /*context*/) {
    list_orders().on_flag_change();
}

void cdilDebugStatus_cbHandler(void* /*context*/) {
    LOG_TRACE("CDIL CdilStatus callback\n");
    FixedText<16> status;
    bool own = false;
    {
        const MutexLock lock(g_resultLock);
        status = read_enum<16>(fields::cdilDebugStatus);
        own = g_resultIsOwn = g_resultIsOwn && status == "success";
    }
    read_ascii<128>(fields::cdilTransUuid);
    if (status != "success" && status != "failure") {
        LOG_TRACE("cdilDebugStatus field set to none\n");
        return;
    }
    LOG_TRACE("Cdil is Being Success or Failure, sending Thread Signal to Cdilstatus thread\n");
    if (!own) {
        wake_watch(timeoutResponse.signal());
    }
}

}  // namespace dro

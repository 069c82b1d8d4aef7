// Circle: the activation and provisioning monitors, and the callback that wakes them.
#include <array>

#include "dro_circle.h"
#include "dro_durations.h"
#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_log.h"
#include "dro_monitor.h"

namespace dro {
namespace {

constexpr const char* kUuidFormat = "LastCircleTransUUID is %s\n";
constexpr const char* kReportFailed = "Call Circle Status API failed!\n";

void report_outcome(const Order& order, int stage, int result, const char* message) {
    if (sync_circle_status(stage, result, order.uuid.c_str(), message) != 0) {
        LOG_ERROR("%s", kReportFailed);
    }
}

Order stored_order() {
    return {.uuid = read_ascii<128>(fields::circle_uuid)};
}

void report_activation_answer(const Order& order) {
    const auto answer = read_enum<16>(fields::activationStatusDROA);
    if (answer.starts_with("activated")) {
        report_outcome(order, kStageActivation, kCircleSuccess, "Success-Activated");
    } else if (answer.starts_with("deactivated")) {
        report_outcome(order, kStageProvision, kCircleSuccess, "Success-Deactivated");
    } else {
        report_outcome(order, kStageActivation, kCircleFailure, "Fail-Activation Failed");
    }
}

void report_activation_wait(Waited outcome, const Order& order) {
    switch (outcome) {
        case Waited::signalled:
            report_activation_answer(order);
            break;
        case Waited::timedOut:
            report_outcome(order, kStageActivation, kCircleFailure, "FAIL-Error TimeOut");
            break;
        default:
            report_outcome(order, kStageActivation, kCircleFailure, "FAIL-System Error Occured");
            break;
    }
}

void t_Handler_circleActivation(const Order& order) {
    LOG_TRACE("Circle Activation Monitoring Thread Started!\n");
    LOG_TRACE(kUuidFormat, order.uuid.c_str());
    if (!lock_monitor(mutex_act_lock, "Unable to Lock Activation Mutex\n")) {
        return;
    }
    const AdoptedLock held(mutex_act_lock);
    if (wait_and_report(mutex_act_lock, activationResponse, order, durations().circleWatch,
                        [&order](Waited outcome) { report_activation_wait(outcome, order); }) &&
        read_enum<16>(fields::actionDROA) != "none") {
        write_enum(fields::actionDROA, "none");
        LOG_TRACE("actionDROA field cleaned up and reset to none ....\n");
    }
}

constexpr OrderKind kActivation{
    .flag = fields::CircleAct,
    .callbackText = "Circle Activation callback\n",
    .threadStartedText = "Successful to spawn thread for CircleAct\n",
    .threadFailedText = "Failed to initialize Thread for CircleAct\n",
    .threadRequired = true,
    .flagResetText = "actState Reset to false\n",
    .monitor = t_Handler_circleActivation,
    .storedOrder = stored_order,
};

void report_provision_answer(const Order& order) {
    if (read_enum<16>(fields::activationStatusDROA).starts_with("provisioned")) {
        report_outcome(order, kStageProvision, kCircleSuccess, "Success-Provisioned");
    } else {
        report_outcome(order, kStageProvision, kCircleFailure, "FAIL-Provision failed");
    }
}

void report_provision_wait(Waited outcome, const Order& order) {
    switch (outcome) {
        case Waited::signalled:
            report_provision_answer(order);
            break;
        case Waited::timedOut:
            report_outcome(order, kStageProvision, kCircleFailure, "FAIL-Error TimeOut");
            break;
        default:
            report_outcome(order, kStageProvision, kCircleFailure, "FAIL- System Failure occured");
            break;
    }
}

// The report resets all fields of the order, so nothing remains to be reset here.
void t_Handler_circleProvision(const Order& order) {
    LOG_TRACE("Circle Provision Monitoring Thread Started!\n");
    LOG_TRACE(kUuidFormat, order.uuid.c_str());
    if (!lock_monitor(mutex_prov_lock, nullptr)) {
        return;
    }
    const AdoptedLock held(mutex_prov_lock);
    wait_and_report(mutex_prov_lock, provisionResponse, order, durations().circleWatch,
                    [&order](Waited outcome) { report_provision_wait(outcome, order); });
}

constexpr OrderKind kProvision{
    .flag = fields::CircleProvision,
    .callbackText = "Provision callback\n",
    .threadStartedText = "Successful to spawn thread for CircleProvision\n",
    .threadFailedText = "Failed to initialize Thread for CircleProvision\n",
    .threadRequired = true,
    .flagResetText = "provisionState Reset to false\n",
    .monitor = t_Handler_circleProvision,
    .storedOrder = stored_order,
};

// The handling of one kind of answer. Some log texts name the wrong monitor. They are part of the interface; keep them.
struct Answer {
    bool matches;
    const char* logText;
    MonitorSignal& monitor;
    const char* signalFailed;
    int stage;
    bool loggedWhenDone;  // kReportFailed is logged after a successful report (true) or a failed one (false)
};

// A woken monitor reports with its own order's transaction. `uuid` is for the report after a failed signal.
void wake_monitor(const Answer& answer, const char* uuid) {
    LOG_TRACE("%s", answer.logText);
    if (answer.monitor.signal() == 0) {
        return;
    }
    LOG_ERROR("%s", answer.signalFailed);
    const int result = sync_circle_status(answer.stage, kCircleFailure, uuid, "FAIL- System Resource Unavailable");
    if ((result == 0) == answer.loggedWhenDone) {
        LOG_ERROR("%s", kReportFailed);
    }
}

}  // namespace

Place take_order_place(const Field& flag, const char* transUuid) {
    Place place = take_place();
    if (!place) {
        log_no_place(flag.name);
        sendTransactionACK(transUuid, kAckFailure, "Too many requests in progress");
    }
    return place;
}

Orders& activation_orders() {
    static Immortal<Orders> orders(kActivation);
    return *orders;
}

Orders& provision_orders() {
    static Immortal<Orders> orders(kProvision);
    return *orders;
}

void circleAct_cbHandler(void* /*context*/) {
    activation_orders().on_flag_change();
}
void circleProvision_cbHandler(void* /*context*/) {
    provision_orders().on_flag_change();
}

void activationStatus_cbHandler(void* /*context*/) {
    LOG_TRACE("Circle Activation Status callback\n");
    const auto status = read_enum<16>(fields::activationStatusDROA);
    const bool activating = read_bool(fields::CircleAct);
    const bool provisioning = read_bool(fields::CircleProvision);
    const auto uuid = read_ascii<128>(fields::circle_uuid);
    constexpr const char* kProvisionSignalFailed = "Unable to trigger Circle Provision thread condition\n";
    constexpr const char* kActivationSignalFailed = "Unable to trigger Circle Activation thread condition\n";
    const std::array<Answer, 4> answers{{
        {
            .matches = status.starts_with("provisioned"),
            .logText = "Circle is Being Provisioned, sending Thread Signal to Provisioning thread\n",
            .monitor = provisionResponse,
            .signalFailed = kProvisionSignalFailed,
            .stage = kStageProvision,
            .loggedWhenDone = true,
        },
        {
            .matches = status.starts_with("activated") || status.starts_with("deactivated"),
            .logText = "Circle is Being Activated or deactivated, sending Thread Signal to Provisioning thread\n",
            .monitor = activationResponse,
            .signalFailed = kActivationSignalFailed,
            .stage = kStageActivation,
            .loggedWhenDone = false,
        },
        {
            .matches = status.starts_with("fail") && activating,
            .logText =
                "Circle Activation Sequences Failed, sending Thread Signal to Provisioning thread to report error\n",
            .monitor = activationResponse,
            .signalFailed = kActivationSignalFailed,
            .stage = kStageActivation,
            .loggedWhenDone = false,
        },
        {
            .matches = status.starts_with("fail") && provisioning,
            .logText =
                "Circle Provisioning Sequences Failed, sending Thread Signal to Activation thread to report error\n",
            .monitor = provisionResponse,
            .signalFailed = kProvisionSignalFailed,
            .stage = kStageProvision,
            .loggedWhenDone = false,
        },
    }};
    for (const Answer& answer : answers) {
        if (answer.matches) {
            wake_monitor(answer, uuid.c_str());
            return;
        }
    }
    LOG_TRACE("ActivationStatusDROA field set to none\n");
}

int circle_cb_subscription() {
    on_change(fields::CircleAct, circleAct_cbHandler);
    on_change(fields::CircleToggle, circleToggle_cbHandler);
    on_change(fields::sorbEnableStatusDROA, sorbEnableStatus_cbHandler);
    on_change(fields::CircleProvision, circleProvision_cbHandler);
    on_change(fields::activationStatusDROA, activationStatus_cbHandler);
    on_change({"CircleDebug", "rClientStatus"}, rClientStatus_cbHandler);
    on_change({"CircleDebug", "sorbAgentRunning"}, sorbAgentRunning_cbHandler);
    on_change({"CircleDebug", "sorbProvisioned"}, sorbProvisioned_cbHandler);
    return 0;
}

}  // namespace dro

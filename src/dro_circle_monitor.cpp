// Circle: the monitors of activation and provisioning, and the callback that wakes them.
#include <array>

#include "dro_circle.h"
#include "dro_fields.h"
#include "dro_log.h"
#include "dro_monitor.h"

namespace dro {
namespace {

constexpr const char* kReportFailed = "Call Circle Status API failed!\n";

void report_outcome(const Order& order, int stage, int result, const char* message) {
    if (sync_circle_status(stage, result, order.uuid.c_str(), message) != 0) {
        LOG_ERROR("%s", kReportFailed);
    }
}

Order circle_order() {
    return {read_ascii<128>(fields::circle_uuid), {}};
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

void report_activation(Waited outcome, const Order& order) {
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

void reset_activation(bool reported) {
    if (!reported) {
        write_bool(fields::CircleAct, false);
    }
    if (!(read_enum<16>(fields::actionDROA) == "none")) {
        write_enum(fields::actionDROA, "none");
        LOG_TRACE("actionDROA field cleaned up and reset to none ....\n");
    }
}

void report_provision_answer(const Order& order) {
    if (read_enum<16>(fields::activationStatusDROA).starts_with("provisioned")) {
        report_outcome(order, kStageProvision, kCircleSuccess, "Success-Provisioned");
    } else {
        report_outcome(order, kStageProvision, kCircleFailure, "FAIL-Provision failed");
    }
}

void report_provision(Waited outcome, const Order& order) {
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

void t_Handler_circleActivation(const Order& order);

// The report has put back all there is.
void reset_provision(bool reported) {
    if (!reported) {
        write_bool(fields::CircleProvision, false);
    }
}

const Monitor kActivationMonitor{
    fields::CircleAct,
    "Circle Activation callback\n",
    "Failed to initialize Thread for CircleAct\n",
    true,
    "Successful to spawn thread for CircleAct\n",
    "actState Reset to false\n",
    t_Handler_circleActivation,
    "Circle Activation Monitoring Thread Started!\n",
    "LastCircleTransUUID is %s\n",
    circle_order,
    mutex_act_lock,
    "Unable to Lock Activation Mutex\n",
    kError,
    activationResponse,
    &Durations::circleWatch,
    report_activation,
    reset_activation,
};

void t_Handler_circleActivation(const Order& order) {
    run_monitor(kActivationMonitor, order);
}

void t_Handler_circleProvision(const Order& order);

const Monitor kProvisionMonitor{
    fields::CircleProvision,
    "Provision callback\n",
    "Failed to initialize Thread for CircleProvision\n",
    true,
    "Successful to spawn thread for CircleProvision\n",
    "provisionState Reset to false\n",
    t_Handler_circleProvision,
    "Circle Provision Monitoring Thread Started!\n",
    "LastCircleTransUUID is %s\n",
    circle_order,
    mutex_prov_lock,
    nullptr,
    kError,
    provisionResponse,
    &Durations::circleWatch,
    report_provision,
    reset_provision,
};

void t_Handler_circleProvision(const Order& order) {
    run_monitor(kProvisionMonitor, order);
}

// What an answer of the Circle agent does. The texts name the thread that they have always named.
struct Answer {
    bool matches;
    const char* logText;
    MonitorSignal& monitor;
    const char* signalFailed;
    int stage;
    int loggedOn;  // the report's result on which "failed" is logged: 0 is the inverse, or 1
};

void wake_monitor(const Answer& answer, const char* uuid) {
    LOG_TRACE("%s", answer.logText);
    if (answer.monitor.signal() == 0) {
        return;
    }
    LOG_ERROR("%s", answer.signalFailed);
    const int result = sync_circle_status(answer.stage, kCircleFailure, uuid, "FAIL- System Resource Unavailable");
    if ((result != 0) == (answer.loggedOn != 0)) {
        LOG_ERROR("%s", kReportFailed);
    }
}

}  // namespace

void circleAct_cbHandler(void* /*context*/) {
    on_flag_change(kActivationMonitor);
}
void circleProvision_cbHandler(void* /*context*/) {
    on_flag_change(kProvisionMonitor);
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
        {status.starts_with("provisioned"),
         "Circle is Being Provisioned, sending Thread Signal to Provisioning thread\n", provisionResponse,
         kProvisionSignalFailed, kStageProvision, 0},
        {status.starts_with("activated") || status.starts_with("deactivated"),
         "Circle is Being Activated or deactivated, sending Thread Signal to Provisioning thread\n", activationResponse,
         kActivationSignalFailed, kStageActivation, 1},
        {status.starts_with("fail") && activating,
         "Circle Activation Sequences Failed, sending Thread Signal to Provisioning thread to report error\n",
         activationResponse, kActivationSignalFailed, kStageActivation, 1},
        {status.starts_with("fail") && provisioning,
         "Circle Provisioning Sequences Failed, sending Thread Signal to Activation thread to report error\n",
         provisionResponse, kProvisionSignalFailed, kStageProvision, 1},
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

// dro_circle.h - the Circle parental-control service: the cloud's orders to the router's Circle agent, and reports of
// their outcome.
//
// Orders run on the command's thread. An activation, deactivation or provisioning is reported by the monitor that its
// flag starts; a toggle is acknowledged by its monitor. Callbacks run on the store's delivery thread.
#pragma once

#include "dro_json.h"
#include "dro_monitor.h"

namespace dro {

// ---- Activation and deactivation ----

// Executes ACTIVATE_CIRCLE or DEACTIVATE_CIRCLE. When an activated service receives its last transaction again, the
// agent reports success whichever command it is, unless `overRide` is set.
void circle_action(const char* transUuid, const char* command, bool overRide);

// Orders the Circle agent to "activate" or "deactivate" and starts the activation monitor. A rejected order is
// acknowledged as a failure. `place` is the place of the monitor.
void setCircleActionDROA(const char* transUuid, const char* action, const Place& place);

inline constexpr int kStageActivation = 0;
inline constexpr int kStageProvision = 1;  // also deactivation
inline constexpr int kCircleFailure = 0;
inline constexpr int kCircleSuccess = 1;

// Reports an outcome: a successful activation to the cloud's Circle endpoint, any other as the transaction's
// acknowledgement. Then resets CircleProvision and activationStatusDROA, unless a stop request interrupted the report.
// CircleAct stays true after an activation that the endpoint answered; every other outcome resets it. The activation
// monitor resets actionDROA. Returns 0, or 1 when the Circle endpoint never answered. May block for the senders' retry
// pauses.
int sync_circle_status(int stage, int result, const char* transUuid, const char* message);

// Evaluates an answer of the Circle endpoint. Returns 0 for accepted, -1 for refused or unknown, 1 when it is not JSON
// or has no status.
int processCircleSync(const char* response);

// ---- Provisioning ----

// Stores the credentials in `data` (the command's data object as text, null when absent) for the Circle agent and
// orders it to provision. Allowed only while an activation is open. Takes ownership of `data`.
void circle_provision(const char* transUuid, const char* command, JsonText data);

// ---- Running state ----

// Switches the provisioned service "on" or "off" according to `data`. Takes ownership of `data`.
void toggle_circle(const char* transUuid, JsonText data);

// ---- Monitoring the Circle agent ----

// Takes a place for the monitor of an order with this `flag`. When no place is free, acknowledges the order as a
// failure and returns null.
Place take_order_place(const Field& flag, const char* transUuid);

// Orders that wait for their monitors.
Orders& activation_orders();
Orders& provision_orders();
Orders& toggle_orders();

// Registers the callbacks below. Returns 0. Start-up only.
int circle_cb_subscription();

// Order flags DroStatus.CircleAct, .CircleProvision and .CircleToggle: each starts an order's monitor.
void circleAct_cbHandler(void* context);
void circleProvision_cbHandler(void* context);
void circleToggle_cbHandler(void* context);
// The Circle agent's answers, CircleCfgInternal.activationStatusDROA and .sorbEnableStatusDROA: each wakes a monitor.
void activationStatus_cbHandler(void* context);
void sorbEnableStatus_cbHandler(void* context);
// The Circle agent's health, CircleDebug.sorbAgentRunning, .sorbProvisioned and .rClientStatus: each is posted to the
// cloud.
void sorbAgentRunning_cbHandler(void* context);
void sorbProvisioned_cbHandler(void* context);
void rClientStatus_cbHandler(void* context);

// Reports the Circle agent's health. Returns 0 when the cloud accepted the report, else 1. A null argument is logged
// and nothing is sent.
int sendClientStatus(const char* feature, const char* state);

}  // namespace dro

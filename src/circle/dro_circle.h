// dro_circle.h - the Circle parental-control service: the cloud's orders to the router's Circle agent, and reports of
// what became of them.
//
// Orders run on the command's thread. An activation, deactivation or provisioning is reported by the monitor that its
// flag starts; a toggle is acknowledged by its monitor. Callbacks run on the store's delivery thread.
#pragma once

#include "dro_json.h"
#include "dro_monitor.h"

namespace dro {

// ---- Activation and deactivation ----

// Carries out ACTIVATE_CIRCLE or DEACTIVATE_CIRCLE. A repeat of the last transaction of an activated service is
// answered as done, whichever of the two it is, unless `overRide` says otherwise.
void circle_action(const char* transUuid, const char* command, bool overRide);

// Orders the Circle agent to "activate" or "deactivate" and starts the activation monitor. A refused order is
// acknowledged.
void setCircleActionDROA(const char* transUuid, const char* action);

inline constexpr int kStageActivation = 0;
inline constexpr int kStageProvision = 1;  // deactivation too
inline constexpr int kCircleFailure = 0;
inline constexpr int kCircleSuccess = 1;

// Reports an outcome: a successful activation to the cloud's Circle endpoint, all else as the transaction's
// acknowledgement; then resets CircleProvision and activationStatusDROA, unless the process's stop cut the report
// short. CircleAct stays true after an activation that the endpoint answered; every other outcome resets it. The
// activation's monitor resets actionDROA. Returns 0, or 1 when the Circle endpoint never answered. May take the senders' pauses.
int sync_circle_status(int stage, int result, const char* transUuid, const char* message);

// Judges an answer of the Circle endpoint: 0 accepted, -1 refused or unknown, 1 no JSON or no status.
int processCircleSync(const char* response);

// ---- Provisioning ----

// Stores the credentials in `data` (the command's data object as text; null when it had none) for the Circle agent and
// orders it to provision. Legitimate only while an activation is open. Takes `data` over.
void circle_provision(const char* transUuid, const char* command, JsonText data);

// ---- Running state ----

// Switches the provisioned service "on" or "off", as `data` says. Takes `data` over.
void toggle_circle(const char* transUuid, JsonText data);

// ---- Watching the Circle agent ----

// Orders that wait for their monitors.
Orders& activation_orders();
Orders& provision_orders();
Orders& toggle_orders();

// Registers the callbacks below. Returns 0. Start-up only.
int circle_cb_subscription();

// The flags of orders, DroStatus.CircleAct, .CircleProvision and .CircleToggle: each starts an order's monitor.
void circleAct_cbHandler(void* context);
void circleProvision_cbHandler(void* context);
void circleToggle_cbHandler(void* context);
// The Circle agent's answers, CircleCfgInternal.activationStatusDROA and .sorbEnableStatusDROA: each wakes a monitor.
void activationStatus_cbHandler(void* context);
void sorbEnableStatus_cbHandler(void* context);
// The agent's health, CircleDebug.sorbAgentRunning, .sorbProvisioned and .rClientStatus: each is posted to the cloud.
void sorbAgentRunning_cbHandler(void* context);
void sorbProvisioned_cbHandler(void* context);
void rClientStatus_cbHandler(void* context);

// Reports the Circle agent's health. Either text may be null. Returns 0 when the cloud accepted it, else 1.
int sendClientStatus(const char* feature, const char* state);

}  // namespace dro

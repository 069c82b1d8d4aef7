// dro_fields.h - single-row store fields that several parts of the agent use, under their names in the store. Includes
// dro_store.h, which reads and writes them.
#pragma once

#include "dro_store.h"

namespace dro::fields {

// The router and its connector.
inline constexpr Field DeviceName{"General", "DeviceName"};
inline constexpr Field jorv_agent_registered{"JorvagentCfg", "jorv_agent_registered"};
inline constexpr Field jorv_force_connection{"JorvagentCfg", "jorv_force_connection"};

// State received from the cloud.
inline constexpr Field claimState{"DroCfg", "claimState"};
inline constexpr Field circle_uuid{"DroCfg", "circle_uuid"};
inline constexpr Field circle_toggle_uuid{"DroCfg", "circle_toggle_uuid"};

// The agent's supported features and pending work.
inline constexpr Field cdilSupport{"DroStatus", "cdilSupport"};
inline constexpr Field dispatcherSupport{"DroStatus", "dispatcherSupport"};
inline constexpr Field BSTSupport{"DroStatus", "BSTSupport"};
inline constexpr Field cdilTransUuid{"DroStatus", "cdilTransUuid"};
inline constexpr Field cdilfetchFor{"DroStatus", "cdilfetchFor"};
// The list watch's flag.
inline constexpr Field cdilTimeout{"DroStatus", "cdilTimeout"};
inline constexpr Field cdilsyncAt{"DroStatus", "cdilsyncAt"};
inline constexpr Field CircleAct{"DroStatus", "CircleAct"};
inline constexpr Field CircleProvision{"DroStatus", "CircleProvision"};
inline constexpr Field CircleToggle{"DroStatus", "CircleToggle"};

// Requests to the device service.
inline constexpr Field FeatureID{"DALHConfig", "FeatureID"};
inline constexpr Field ProcessID{"DALHConfig", "ProcessID"};
inline constexpr Field CDILRequest{"DALHConfig", "CDILRequest"};
inline constexpr Field CDILTrigger{"DILGeneral", "CDILTrigger"};

// Notifiers.
inline constexpr Field ndnIndex{"DALHNotifyNDN", "Index"};
inline constexpr Field dtnIndex{"DALHNotifyDTN", "Index"};

// Progress marks.
inline constexpr Field dbgArg1{"RADebugLog", "dbgArg1"};
inline constexpr Field dbgArg2{"RADebugLog", "dbgArg2"};
inline constexpr Field cdilTimestamp{"RADebugLog", "cdilTimestamp"};
// The result of the last list.
inline constexpr Field cdilDebugStatus{"RADebugLog", "cdilDebugStatus"};
inline constexpr Field raCdilTimeout{"RADebugLog", "raCdilTimeout"};

// Speed test.
inline constexpr Field BSTStatus{"BSTCfg", "BSTStatus"};

// The Circle service.
inline constexpr Field activationStatusDROA{"CircleCfgInternal", "activationStatusDROA"};
inline constexpr Field sorbEnableStatusDROA{"CircleCfgInternal", "sorbEnableStatusDROA"};
inline constexpr Field actionDROA{"CircleCfgInternal", "actionDROA"};
inline constexpr Field activationStatus{"CircleStatus", "activationStatus"};
inline constexpr Field sorbStatus{"CircleStatus", "sorbStatus"};
inline constexpr Field sorbActivationProgress{"CircleDebug", "sorbActivationProgress"};
inline constexpr Field errorMessage{"CircleDebug", "errorMessage"};

// The index in a notifier when no device is pending.
inline constexpr std::uint32_t kNoDevice = 257;

}  // namespace dro::fields

// store_fields.h - the store's fields that the lab reads and writes. Constants only.
#pragma once

#include <array>

#include "store.h"

namespace lab::field {

// The router.
inline constexpr Field kDeviceModel{"General", "DeviceModel"};
inline constexpr Field kDeviceName{"General", "DeviceName"};
inline constexpr Field kFwRevision{"General", "FwRevision"};
inline constexpr Field kSerial{"General", "FSN"};
inline constexpr Field kDefaultMac{"General", "DefaultMAC"};
inline constexpr Field kLogMask{"dalLogCfg", "DroagentLogMask"};
inline constexpr Field kVersion{"DalModuleVersion", "DroagentVersion"};

// The connector.
inline constexpr Field kJorvId{"JorvagentCfg", "jorv_agent_id"};
inline constexpr Field kClaimCode{"JorvagentCfg", "jorv_agent_claim_code"};
inline constexpr Field kRegistered{"JorvagentCfg", "jorv_agent_registered"};
inline constexpr Field kClaimed{"JorvagentCfg", "jorv_agent_claimed"};
inline constexpr Field kConnected{"JorvagentCfg", "jorv_agent_connected"};
inline constexpr Field kForceConnection{"JorvagentCfg", "jorv_force_connection"};
inline constexpr Field kMessagePort{"JorvagentCfg", "jorv_handler_1023"};

// The agent.
inline constexpr Field kBaseUrl{"Drocfg", "DroBaseURL"};
inline constexpr Field kClaimState{"DroCfg", "claimState"};
inline constexpr Field kCircleUuid{"DroCfg", "circle_uuid"};
inline constexpr Field kToggleUuid{"DroCfg", "circle_toggle_uuid"};
inline constexpr Field kRegistrationDone{"DROStatus", "addJorvdeviceIdDone"};
inline constexpr Field kListSupport{"DroStatus", "cdilSupport"};
inline constexpr Field kDispatcherSupport{"DroStatus", "dispatcherSupport"};
inline constexpr Field kSpeedTestSupport{"DroStatus", "BSTSupport"};
inline constexpr Field kListTransaction{"DroStatus", "cdilTransUuid"};
inline constexpr Field kListFetchFor{"DroStatus", "cdilfetchFor"};
inline constexpr Field kListWatched{"DroStatus", "cdilTimeout"};
inline constexpr Field kSyncAt{"DroStatus", "cdilsyncAt"};
inline constexpr Field kCircleAct{"DroStatus", "CircleAct"};
inline constexpr Field kCircleProvision{"DroStatus", "CircleProvision"};
inline constexpr Field kCircleToggle{"DroStatus", "CircleToggle"};
inline constexpr Field kCheckpoint{"RADebugLog", "dbgArg1"};
inline constexpr Field kListResult{"RADebugLog", "dbgArg2"};
inline constexpr Field kListOutcome{"RADebugLog", "cdilDebugStatus"};
inline constexpr Field kListTimedOut{"RADebugLog", "raCdilTimeout"};

// Requests to the device service.
inline constexpr Field kFeature{"DALHConfig", "FeatureID"};
inline constexpr Field kProcess{"DALHConfig", "ProcessID"};
inline constexpr Field kBlockMac{"DALHConfig", "blockCdMAC"};
inline constexpr Field kAllowMac{"DALHConfig", "allowCdMAC"};
inline constexpr Field kTagMac{"DALHConfig", "TaggedDeviceMAC"};
inline constexpr Field kTagStatus{"DALHConfig", "TagStatus"};
inline constexpr Field kSpeedTestState{"DALHConfig", "BSTStateuserDRO"};
inline constexpr Field kTargetMac{"DALHConfig", "DeviceMAC"};
inline constexpr Field kCustomName{"DALHConfig", "DisplayName"};
inline constexpr Field kCustomType{"DALHConfig", "DeviceType"};
inline constexpr Field kCustomBrand{"DALHConfig", "DisplayBrand"};
inline constexpr Field kCustomModel{"DALHConfig", "DisplayModel"};
inline constexpr Field kListRequest{"DALHConfig", "CDILRequest"};
inline constexpr Field kBulkCount{"DALHprofileMAC", "MACcount"};

// Its notifiers.
inline constexpr Field kNewDevice{"DALHNotifyNDN", "Index"};
inline constexpr Field kTaggedDevice{"DALHNotifyDTN", "Index"};
inline constexpr Field kUpdatedDevice{"DALHNotifyCDUPDATE", "IndexCD"};
inline constexpr Field kListStatus{"DALHNotifyCDIL", "CDILstatus"};
inline constexpr Field kListCount{"DALHNotifyCDIL", "TotalIndexcount"};
inline constexpr std::array<Field, 8> kListMasks{{{"DALHNotifyCDIL", "IndexBitMask0"},
                                                  {"DALHNotifyCDIL", "IndexBitMask1"},
                                                  {"DALHNotifyCDIL", "IndexBitMask2"},
                                                  {"DALHNotifyCDIL", "IndexBitMask3"},
                                                  {"DALHNotifyCDIL", "IndexBitMask4"},
                                                  {"DALHNotifyCDIL", "IndexBitMask5"},
                                                  {"DALHNotifyCDIL", "IndexBitMask6"},
                                                  {"DALHNotifyCDIL", "IndexBitMask7"}}};

// Speed test.
inline constexpr Field kSpeedTestStatus{"BSTCfg", "BSTStatus"};
inline constexpr Field kUplink{"BSTResults", "UplinkSpeed"};
inline constexpr Field kDownlink{"BSTResults", "Downlinkspeed"};
inline constexpr Field kServerId{"BSTResults", "ServerId"};
inline constexpr Field kLatency{"BSTResults", "Latency"};
inline constexpr Field kProvider{"BSTResults", "ISP"};
inline constexpr Field kSpeedTestKind{"BSTResults", "bstRequestType"};

// One row for each device.
inline constexpr Field kMac{"DeviceIdList", "DeviceMac"};
inline constexpr Field kName{"DeviceIdList", "DeviceDisplayName"};
inline constexpr Field kModel{"DeviceIdList", "DeviceDisplayModel"};
inline constexpr Field kType{"DeviceIdList", "DisplayType"};
inline constexpr Field kBrand{"DeviceIdList", "DeviceDisplayBrand"};
inline constexpr Field kTypeCustom{"DeviceIdList", "DeviceTypeCustom"};
inline constexpr Field kTypeDefault{"DeviceIdList", "DeviceTypeOstra"};
inline constexpr Field kNameCustom{"DeviceIdList", "DisplayNameCustom"};
inline constexpr Field kNameDefault{"DeviceIdList", "DisplayNameOstra"};
inline constexpr Field kModelCustom{"DeviceIdList", "DisplayModelCustom"};
inline constexpr Field kModelDefault{"DeviceIdList", "DeviceModel"};
inline constexpr Field kBrandCustom{"DeviceIdList", "DisplayBrandCustom"};
inline constexpr Field kBrandDefault{"DeviceIdList", "DeviceBrand"};
inline constexpr Field kIp{"Dilsignature", "DeviceIP"};
inline constexpr Field kInterface{"Dilsignature", "DeviceConnectionInterface"};
inline constexpr Field kLinkState{"Dilsignature", "Devicestate"};
inline constexpr Field kTagged{"Dilsignature", "IsTagged"};
inline constexpr Field kBlocked{"Dilsignature", "AllowOrBlock"};
inline constexpr Field kApMac{"ConnectDeviceinfo", "ConnAPMac"};
inline constexpr Field kSsid{"ConnectDeviceinfo", "ConnSSID"};
inline constexpr Field kDownloadBw{"ConnectDeviceinfo", "DownloadBW"};
inline constexpr Field kUploadBw{"ConnectDeviceinfo", "UploadBW"};
inline constexpr Field kSignal{"ConnectDeviceinfo", "DeviceSignalStrength"};
inline constexpr Field kLinkRate{"ConnectDeviceinfo", "DeviceLinkRate"};

// The Circle service.
inline constexpr Field kCuuid{"CircleCfg", "cuuid"};
inline constexpr Field kCircleId{"CircleCfg", "circleId"};
inline constexpr Field kCircleHost{"CircleCfg", "cloudhost"};
inline constexpr Field kCircleOrder{"CircleCfgInternal", "actionDROA"};
inline constexpr Field kCircleAnswer{"CircleCfgInternal", "activationStatusDROA"};
inline constexpr Field kToggleOrder{"CircleCfgInternal", "sorbEnableState"};
inline constexpr Field kToggleAnswer{"CircleCfgInternal", "sorbEnableStatusDROA"};
inline constexpr Field kCircleSynced{"CircleDebug", "sorbSyncDone"};
inline constexpr Field kCircleProgress{"CircleDebug", "sorbActivationProgress"};
inline constexpr Field kCircleError{"CircleDebug", "errorMessage"};
inline constexpr Field kCircleRunning{"CircleDebug", "sorbAgentRunning"};
inline constexpr Field kCircleProvisioned{"CircleDebug", "sorbProvisioned"};
inline constexpr Field kCircleClient{"CircleDebug", "rClientStatus"};
inline constexpr Field kCircleState{"CircleStatus", "activationStatus"};
inline constexpr Field kCircleEnabled{"CircleStatus", "sorbStatus"};

}  // namespace lab::field

#include "store_story.h"

#include <array>

#include "store_fields.h"

namespace lab {

namespace {

// Fields that the agent writes. Fields with other writers are shown only for the value that the agent writes.
struct ShownField {
    Field field;
    const char* only = nullptr;
};

constexpr std::array kShown{ShownField{field::DalModuleVersion::DroagentVersion},
                            ShownField{field::JorvagentCfg::jorv_handler_1023},
                            ShownField{field::JorvagentCfg::jorv_force_connection, "1"},
                            ShownField{field::DroCfg::claimState},
                            ShownField{field::DROStatus::addJorvdeviceIdDone, "true"},
                            ShownField{field::DroStatus::cdilTransUuid},
                            ShownField{field::DroStatus::cdilfetchFor},
                            ShownField{field::DroStatus::cdilTimeout},
                            ShownField{field::DroStatus::cdilsyncAt},
                            ShownField{field::RADebugLog::dbgArg1},
                            ShownField{field::RADebugLog::dbgArg2},
                            ShownField{field::RADebugLog::cdilDebugStatus},
                            ShownField{field::RADebugLog::raCdilTimeout},
                            ShownField{field::DALHConfig::blockCdMAC},
                            ShownField{field::DALHConfig::allowCdMAC},
                            ShownField{field::DALHConfig::TaggedDeviceMAC},
                            ShownField{field::DALHConfig::TagStatus},
                            ShownField{field::DALHConfig::BSTStateuserDRO},
                            ShownField{field::DALHConfig::DeviceMAC},
                            ShownField{field::DALHConfig::DisplayName},
                            ShownField{field::DALHConfig::CDILRequest},
                            ShownField{field::DALHprofileMAC::MACcount},
                            ShownField{field::DALHConfig::FeatureID},
                            ShownField{field::DALHConfig::ProcessID},
                            ShownField{field::DALHNotifyCDIL::CDILstatus, "init"},
                            ShownField{field::DALHNotifyDTN::Index, "257"},
                            ShownField{field::DALHNotifyCDUPDATE::IndexCD, "257"},
                            ShownField{field::BSTCfg::BSTStatus, "Unknown"},
                            ShownField{field::DroCfg::circle_uuid},
                            ShownField{field::DroCfg::circle_toggle_uuid},
                            ShownField{field::DroStatus::CircleAct},
                            ShownField{field::DroStatus::CircleProvision},
                            ShownField{field::DroStatus::CircleToggle},
                            ShownField{field::CircleCfg::circleId},
                            ShownField{field::CircleCfgInternal::actionDROA},
                            ShownField{field::CircleCfgInternal::activationStatusDROA, "none"},
                            ShownField{field::CircleCfgInternal::sorbEnableState},
                            ShownField{field::CircleCfgInternal::sorbEnableStatusDROA, "none"},
                            ShownField{field::CircleDebug::sorbSyncDone}};

}  // namespace

StoreStory::StoreStory(Timeline& timeline) : timeline_(timeline) {
    std::set<std::string> tables;
    for (const auto& shown : kShown) {
        tables.insert(shown.field.table);
    }
    store_.follow(tables, [this](std::string_view table, int, std::string_view name) { noticed(table, name); });
}

void StoreStory::noticed(std::string_view table, std::string_view name) {
    for (const auto& shown : kShown) {
        if (!shown.field.is(table, name)) {
            continue;
        }
        const std::string value = store_.get(shown.field);
        if (shown.only == nullptr || value == shown.only) {
            timeline_.message(Actor::Agent, Actor::Store, std::string(table) + "." + std::string(name) + " = " + value);
        }
        return;
    }
}

}  // namespace lab

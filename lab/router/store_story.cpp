#include "store_story.h"

#include <array>

#include "store_fields.h"

namespace lab {

namespace {

// Fields that the agent writes. Fields with other writers are shown only for the value that the agent writes.
struct Told {
    Field field;
    const char* only = nullptr;
};

constexpr std::array kTold{Told{field::DalModuleVersion::DroagentVersion},
                           Told{field::JorvagentCfg::jorv_handler_1023},
                           Told{field::JorvagentCfg::jorv_force_connection, "1"},
                           Told{field::DroCfg::claimState},
                           Told{field::DROStatus::addJorvdeviceIdDone, "true"},
                           Told{field::DroStatus::cdilTransUuid},
                           Told{field::DroStatus::cdilfetchFor},
                           Told{field::DroStatus::cdilTimeout},
                           Told{field::DroStatus::cdilsyncAt},
                           Told{field::RADebugLog::dbgArg1},
                           Told{field::RADebugLog::dbgArg2},
                           Told{field::RADebugLog::cdilDebugStatus},
                           Told{field::RADebugLog::raCdilTimeout},
                           Told{field::DALHConfig::blockCdMAC},
                           Told{field::DALHConfig::allowCdMAC},
                           Told{field::DALHConfig::TaggedDeviceMAC},
                           Told{field::DALHConfig::TagStatus},
                           Told{field::DALHConfig::BSTStateuserDRO},
                           Told{field::DALHConfig::DeviceMAC},
                           Told{field::DALHConfig::DisplayName},
                           Told{field::DALHConfig::CDILRequest},
                           Told{field::DALHprofileMAC::MACcount},
                           Told{field::DALHConfig::FeatureID},
                           Told{field::DALHConfig::ProcessID},
                           Told{field::DALHNotifyCDIL::CDILstatus, "init"},
                           Told{field::DALHNotifyDTN::Index, "257"},
                           Told{field::DALHNotifyCDUPDATE::IndexCD, "257"},
                           Told{field::BSTCfg::BSTStatus, "Unknown"},
                           Told{field::DroCfg::circle_uuid},
                           Told{field::DroCfg::circle_toggle_uuid},
                           Told{field::DroStatus::CircleAct},
                           Told{field::DroStatus::CircleProvision},
                           Told{field::DroStatus::CircleToggle},
                           Told{field::CircleCfg::circleId},
                           Told{field::CircleCfgInternal::actionDROA},
                           Told{field::CircleCfgInternal::activationStatusDROA, "none"},
                           Told{field::CircleCfgInternal::sorbEnableState},
                           Told{field::CircleCfgInternal::sorbEnableStatusDROA, "none"},
                           Told{field::CircleDebug::sorbSyncDone}};

}  // namespace

StoreStory::StoreStory(Timeline& timeline) : timeline_(timeline) {
    std::set<std::string> tables;
    for (const auto& told : kTold) {
        tables.insert(told.field.table);
    }
    store_.follow(tables, [this](std::string_view table, int, std::string_view name) { noticed(table, name); });
}

void StoreStory::noticed(std::string_view table, std::string_view name) {
    for (const auto& told : kTold) {
        if (!told.field.is(table, name)) {
            continue;
        }
        const std::string value = store_.get(told.field);
        if (told.only == nullptr || value == told.only) {
            timeline_.tell(Actor::Agent, Actor::Store, std::string(table) + "." + std::string(name) + " = " + value);
        }
        return;
    }
}

}  // namespace lab

#include "store_story.h"

#include <array>

#include "store_fields.h"

namespace lab {

namespace {

// What the agent writes. Fields that others write too are told only for the agent's own word.
struct Told {
    Field field;
    const char* only = nullptr;
};

constexpr std::array kTold{Told{field::kVersion},
                           Told{field::kMessagePort},
                           Told{field::kForceConnection, "1"},
                           Told{field::kClaimState},
                           Told{field::kRegistrationDone, "true"},
                           Told{field::kListTransaction},
                           Told{field::kListFetchFor},
                           Told{field::kListWatched},
                           Told{field::kSyncAt},
                           Told{field::kCheckpoint},
                           Told{field::kListResult},
                           Told{field::kListOutcome},
                           Told{field::kListTimedOut},
                           Told{field::kBlockMac},
                           Told{field::kAllowMac},
                           Told{field::kTagMac},
                           Told{field::kTagStatus},
                           Told{field::kSpeedTestState},
                           Told{field::kTargetMac},
                           Told{field::kCustomName},
                           Told{field::kListRequest},
                           Told{field::kBulkCount},
                           Told{field::kFeature},
                           Told{field::kProcess},
                           Told{field::kListStatus, "init"},
                           Told{field::kTaggedDevice, "257"},
                           Told{field::kUpdatedDevice, "257"},
                           Told{field::kSpeedTestStatus, "Unknown"},
                           Told{field::kCircleUuid},
                           Told{field::kToggleUuid},
                           Told{field::kCircleAct},
                           Told{field::kCircleProvision},
                           Told{field::kCircleToggle},
                           Told{field::kCircleId},
                           Told{field::kCircleOrder},
                           Told{field::kCircleAnswer, "none"},
                           Told{field::kToggleOrder},
                           Told{field::kToggleAnswer, "none"},
                           Told{field::kCircleSynced}};

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

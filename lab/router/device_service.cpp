#include "device_service.h"

#include <array>
#include <stdexcept>

#include "store_fields.h"

namespace lab {

namespace {

constexpr std::chrono::milliseconds kUsualDelay{20};

namespace notified = field::DALHNotifyCDIL;
constexpr std::array<Field, 8> kMasks{notified::IndexBitMask0, notified::IndexBitMask1, notified::IndexBitMask2,
                                      notified::IndexBitMask3, notified::IndexBitMask4, notified::IndexBitMask5,
                                      notified::IndexBitMask6, notified::IndexBitMask7};

enum Feature : std::uint32_t {
    kTagDevice = 2,
    kSpeedTestSwitch = 5,
    kUnblock = 6,
    kBlock = 7,
    kList = 8,
    kCustomise = 9,
    kRemove = 10,
    kBlockBulk = 11,
    kUnblockBulk = 12
};

constexpr std::uint32_t kBulkLongest = 20;

const char* nameOf(ServiceMood mood) {
    constexpr std::array kNames{"ok", "silent", "wrong"};
    return kNames.at(static_cast<std::size_t>(mood));
}

std::string countText(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " device" : " devices");
}

}  // namespace

DeviceService::DeviceService(Timeline& timeline, Population& population)
    : timeline_(timeline), population_(population), delayMs_(kUsualDelay.count()) {
    store_.follow({"DALHConfig", "DALHNotifyCDIL", "RADebugLog"},
                  [this](std::string_view table, int, std::string_view name) { noticed(table, name); });
}

std::string DeviceService::describe() const {
    return std::string(nameOf(mood_)) + ", answers after " + std::to_string(delayMs_) + " ms, " +
           countText(population_.rows().size());
}

void DeviceService::note(const std::string& what, Tone tone) {
    timeline_.note(Actor::DeviceService, what, tone);
}

std::string DeviceService::nameOfRow(int row) const {
    return population_.at(row).name + " (row " + std::to_string(row) + ")";
}

void DeviceService::noticed(std::string_view table, std::string_view name) {
    if (field::DALHConfig::ProcessID.is(table, name) && store_.number(field::DALHConfig::ProcessID) == 1) {
        const std::uint32_t feature = store_.number(field::DALHConfig::FeatureID);
        if (mood_ == ServiceMood::Silent) {
            note("ignores request " + std::to_string(feature) + " (mood: silent)", Tone::Bad);
            return;
        }
        jobs_.after(std::chrono::milliseconds(delayMs_), [this, feature] { carryOut(feature); });
    } else if (field::RADebugLog::cdilDebugStatus.is(table, name) ||
               (field::DALHNotifyCDIL::CDILstatus.is(table, name) &&
                store_.get(field::DALHNotifyCDIL::TotalIndexcount) == "0" &&
                store_.get(field::DALHNotifyCDIL::CDILstatus) == "init")) {
        // The agent writes cdilDebugStatus for each list it delivers. For an empty list it only resets the cycle.
        closeList();
    }
}

void DeviceService::carryOut(std::uint32_t feature) {
    switch (feature) {
        case kTagDevice:
            return tag();
        case kSpeedTestSwitch:
            return note("background speed test: " + store_.get(field::DALHConfig::BSTStateuserDRO));
        case kUnblock:
            return setBlocked(store_.mac(field::DALHConfig::allowCdMAC), false);
        case kBlock:
            return setBlocked(store_.mac(field::DALHConfig::blockCdMAC), true);
        case kList:
            return buildList();
        case kCustomise:
            return customise();
        case kRemove:
            return removeDevice();
        case kBlockBulk:
        case kUnblockBulk:
            return setBlockedList(feature == kBlockBulk);
        default:
            note("request " + std::to_string(feature) + " is unknown", Tone::Bad);
    }
}

void DeviceService::setBlocked(const Mac& mac, bool blocked) {
    const auto row = population_.rowOf(mac);
    if (!row) {
        return note("no device " + macText(mac) + " to " + (blocked ? "block" : "unblock"), Tone::Bad);
    }
    store_.set(field::Dilsignature::AllowOrBlock.at(*row), blocked ? "block" : "allow");
    note((blocked ? "blocked " : "unblocked ") + nameOfRow(*row));
}

void DeviceService::setBlockedList(bool blocked) {
    const std::uint32_t count = std::min(store_.number(field::DALHprofileMAC::MACcount), kBulkLongest);
    for (std::uint32_t i = 1; i <= count; ++i) {
        const std::string name = "ProfileMAC" + std::to_string(i);
        setBlocked(store_.mac({"DALHprofileMAC", name.c_str()}), blocked);
    }
}

void DeviceService::tag() {
    const Mac mac = store_.mac(field::DALHConfig::TaggedDeviceMAC);
    const auto row = population_.rowOf(mac);
    if (!row) {
        return note("no device " + macText(mac) + " to tag", Tone::Bad);
    }
    const std::string status = store_.get(field::DALHConfig::TagStatus);
    store_.set(field::Dilsignature::IsTagged.at(*row), status);
    note("tagged " + nameOfRow(*row) + " for " + status);
}

void DeviceService::customise() {
    const Mac mac = store_.mac(field::DALHConfig::DeviceMAC);
    const auto row = population_.rowOf(mac);
    if (!row) {
        return note("no device " + macText(mac) + " to customise", Tone::Bad);
    }
    const std::string before = nameOfRow(*row);
    population_.customise(*row, store_.get(field::DALHConfig::DisplayName), store_.get(field::DALHConfig::DeviceType),
                          store_.get(field::DALHConfig::DisplayBrand), store_.get(field::DALHConfig::DisplayModel));
    note(before + " is now called " + population_.at(*row).name);
}

void DeviceService::removeDevice() {
    const Mac mac = store_.mac(field::DALHConfig::DeviceMAC);
    const auto row = population_.rowOf(mac);
    if (!row) {
        return note("no device " + macText(mac) + " to remove", Tone::Bad);
    }
    const std::string name = nameOfRow(*row);
    population_.remove(*row);
    note("removed " + name);
}

void DeviceService::buildList() {
    const std::string wanted = store_.get(field::DALHConfig::CDILRequest);
    const auto rows = population_.rows(wanted == "online"    ? std::optional(true)
                                       : wanted == "offline" ? std::optional(false)
                                                             : std::nullopt);
    const auto masks = masksOf(rows);
    const std::size_t announced = rows.size() + (mood_ == ServiceMood::Wrong ? 1 : 0);
    std::vector<Value> list{{field::DALHNotifyCDIL::TotalIndexcount, std::to_string(announced)}};
    for (std::size_t i = 0; i < masks.size(); ++i) {
        list.push_back({kMasks.at(i), std::to_string(masks.at(i))});
    }
    store_.set(list);
    {
        const std::lock_guard lock(listMutex_);
        listOut_ = true;
        listTransaction_ = store_.get(field::DroStatus::cdilTransUuid);
    }
    note("list of " + countText(rows.size()) + " (" + wanted + ") is ready" +
         (announced > rows.size() ? ", announced with one device too many (mood: wrong)" : ""));
    store_.set(field::DALHNotifyCDIL::CDILstatus, "complete");
}

void DeviceService::closeList() {
    const std::lock_guard lock(listMutex_);
    if (!listOut_) {
        return;
    }
    listOut_ = false;
    // A newer transaction keeps its place.
    if (!listTransaction_.empty() && store_.get(field::DroStatus::cdilTransUuid) == listTransaction_) {
        store_.set(field::DroStatus::cdilTransUuid, "Noop");
    }
}

int DeviceService::deviceJoined(const std::string& name) {
    const int row = population_.join(name);
    note(nameOfRow(row) + " joined the network");
    store_.set(field::DALHNotifyNDN::Index, std::to_string(row));
    return row;
}

int DeviceService::deviceOnline(const std::string& name, bool online) {
    const int row = population_.find(name);
    population_.setOnline(row, online);
    const std::string tagged = store_.get(field::Dilsignature::IsTagged.at(row));
    const bool tell = tagged == "both" || tagged == (online ? "online" : "offline");
    note(nameOfRow(row) + " is " + (online ? "online" : "offline") + ", tagged " + tagged);
    if (tell) {
        store_.set(field::DALHNotifyDTN::Index, std::to_string(row));
    }
    return row;
}

int DeviceService::deviceUpdated(const std::string& name) {
    const int row = population_.find(name);
    population_.refresh(row);
    note(nameOfRow(row) + " has new signal values");
    store_.set(field::DALHNotifyCDUPDATE::IndexCD, std::to_string(row));
    return row;
}

void DeviceService::speedTestDone(const SpeedTest& result) {
    store_.set({{field::BSTResults::UplinkSpeed, std::to_string(result.up)},
                {field::BSTResults::Downlinkspeed, std::to_string(result.down)},
                {field::BSTResults::ServerId, std::to_string(result.server)},
                {field::BSTResults::Latency, std::to_string(result.latency)},
                {field::BSTResults::ISP, result.provider},
                {field::BSTResults::bstRequestType, result.scheduled ? "Scheduled" : "Manual"}});
    note("speed test finished: " + std::to_string(result.down) + " down, " + std::to_string(result.up) + " up");
    store_.set(field::BSTCfg::BSTStatus, "Complete");
}

}  // namespace lab

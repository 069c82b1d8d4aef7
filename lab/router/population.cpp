#include "population.h"

#include <strings.h>

#include <algorithm>
#include <stdexcept>

#include "store_fields.h"

namespace lab {

namespace {

struct Kind {
    const char* name;
    const char* type;
    const char* brand;
    const char* model;
    bool wired;
};

// Fictional brands and models.
constexpr std::array kKinds{
    Kind{.name = "phone", .type = "Phone", .brand = "Nordlicht", .model = "N7 Mini", .wired = false},
    Kind{.name = "laptop", .type = "Computer", .brand = "Kestrel", .model = "AirBook 14", .wired = false},
    Kind{.name = "tablet", .type = "Tablet", .brand = "Nordlicht", .model = "Slate 10", .wired = false},
    Kind{.name = "TV", .type = "Television", .brand = "Halvorsen", .model = "Vision 55", .wired = true},
    Kind{.name = "speaker", .type = "Speaker", .brand = "Pinewood", .model = "Echoic 2", .wired = false},
    Kind{.name = "console", .type = "Game console", .brand = "Bramble", .model = "Play Box", .wired = true},
    Kind{.name = "watch", .type = "Wearable", .brand = "Kestrel", .model = "Pulse 3", .wired = false},
    Kind{.name = "printer", .type = "Printer", .brand = "Ottermark", .model = "Laser 210", .wired = true}};

constexpr std::array kOwners{"Anna",   "Ben",   "Clara", "David", "Emma",  "Felix", "Greta", "Hugo",
                             "Ida",    "Jonas", "Kira",  "Leo",   "Marta", "Nils",  "Olga",  "Paul",
                             "Quirin", "Rosa",  "Sven",  "Tilda", "Ugo",   "Vera",  "Wim",   "Xenia",
                             "Yara",   "Zeno",  "Amir",  "Bela",  "Cleo",  "Dana",  "Enzo",  "Fay"};
static_assert(kKinds.size() * kOwners.size() == kRows);

const Mac kAccessPoint{0x02, 0x00, 0x5e, 0xff, 0x53, 0x01};

Mac macOf(int number) {
    return {0x02, 0x00, 0x5e, static_cast<std::uint8_t>(number / 256), 0x53, static_cast<std::uint8_t>(number % 256)};
}

std::string ipOf(int row) {
    return "192.168." + std::to_string(50 + (row + 10) / 256) + "." + std::to_string((row + 10) % 256);
}

bool sameName(const std::string& left, const std::string& right) {
    return strcasecmp(left.c_str(), right.c_str()) == 0;
}

}  // namespace

Device deviceNumber(int number) {
    // Neighbours differ in kind and owner, so a small network looks like a household.
    const auto index = static_cast<std::size_t>(number);
    const Kind& kind = kKinds.at(index % kKinds.size());
    const char* owner = kOwners.at((index / kKinds.size() + index % kKinds.size()) % kOwners.size());
    return {macOf(number), std::string(owner) + "'s " + kind.name, kind.type, kind.brand, kind.model, kind.wired, true};
}

std::array<std::uint32_t, 8> masksOf(const std::vector<int>& rows) {
    std::array<std::uint32_t, 8> masks{};
    for (const int row : rows) {
        masks.at(static_cast<std::size_t>(row / 32)) |= 1U << static_cast<unsigned>(row % 32);
    }
    return masks;
}

Population::Population(Store& store) : store_(store) {}

void Population::write(int row, const Device& device) {
    const bool nobody = device.mac == Mac{};
    std::vector<Value> values{{field::DeviceIdList::DeviceMac, macText(device.mac)},
                              {field::DeviceIdList::DeviceDisplayName, device.name},
                              {field::DeviceIdList::DeviceDisplayModel, device.model},
                              {field::DeviceIdList::DisplayType, device.type},
                              {field::DeviceIdList::DeviceDisplayBrand, device.brand},
                              {field::DeviceIdList::DisplayNameOstra, device.name},
                              {field::DeviceIdList::DeviceModel, device.model},
                              {field::DeviceIdList::DeviceTypeOstra, device.type},
                              {field::DeviceIdList::DeviceBrand, device.brand},
                              {field::DeviceIdList::DisplayNameCustom, ""},
                              {field::DeviceIdList::DisplayModelCustom, ""},
                              {field::DeviceIdList::DeviceTypeCustom, ""},
                              {field::DeviceIdList::DisplayBrandCustom, ""},
                              {field::Dilsignature::DeviceIP, nobody ? "0.0.0.0" : ipOf(row)},
                              {field::Dilsignature::DeviceConnectionInterface, nobody         ? ""
                                                                               : device.wired ? "Ethernet"
                                                                                              : "5GHz"},
                              {field::Dilsignature::Devicestate, device.online && !nobody ? "UP" : "DOWN"},
                              {field::Dilsignature::IsTagged, "untag"},
                              {field::Dilsignature::AllowOrBlock, "allow"},
                              {field::ConnectDeviceinfo::ConnAPMac, macText(nobody ? Mac{} : kAccessPoint)},
                              {field::ConnectDeviceinfo::ConnSSID, nobody || device.wired ? "" : "Lab network"}};
    const auto signal = signalOf(row, device);
    values.insert(values.end(), signal.begin(), signal.end());
    for (auto& value : values) {
        value.field.row = row;
    }
    store_.set(values);
}

std::vector<Value> Population::signalOf(int row, const Device& device) const {
    if (device.mac == Mac{}) {
        return {{field::ConnectDeviceinfo::DeviceSignalStrength.at(row), ""},
                {field::ConnectDeviceinfo::DeviceLinkRate.at(row), ""},
                {field::ConnectDeviceinfo::DownloadBW.at(row), ""},
                {field::ConnectDeviceinfo::UploadBW.at(row), ""}};
    }
    const int variation = (row * 7 + walked_ * 5) % 40;
    return {
        {field::ConnectDeviceinfo::DeviceSignalStrength.at(row), device.wired ? "" : std::to_string(-40 - variation)},
        {field::ConnectDeviceinfo::DeviceLinkRate.at(row), std::to_string(device.wired ? 1000 : 866 - 10 * variation)},
        {field::ConnectDeviceinfo::DownloadBW.at(row), std::to_string(2 + variation)},
        {field::ConnectDeviceinfo::UploadBW.at(row), std::to_string(1 + variation / 4)}};
}

void Population::resize(int count) {
    if (count < 0 || count > kRows) {
        throw std::runtime_error("a network has 0 to " + std::to_string(kRows) + " devices");
    }
    const std::lock_guard lock(mutex_);
    made_ = std::max(made_, count);
    for (int row = 0; row < kRows; ++row) {
        auto& place = devices_.at(static_cast<std::size_t>(row));
        if (row < count) {
            place = deviceNumber(row);
            write(row, *place);
        } else if (place) {
            place.reset();
            write(row, Device{});
        }
    }
}

int Population::freeRow() const {
    const auto place = std::find(devices_.begin(), devices_.end(), std::nullopt);
    if (place == devices_.end()) {
        throw std::runtime_error("the device tables are full");
    }
    return static_cast<int>(place - devices_.begin());
}

int Population::join(const std::string& name) {
    const std::lock_guard lock(mutex_);
    if (std::any_of(devices_.begin(), devices_.end(),
                    [&](const auto& place) { return place && sameName(place->name, name); })) {
        throw std::runtime_error("a device \"" + name + "\" already exists");
    }
    const int row = freeRow();
    Device device = deviceNumber(made_ % kRows);
    device.mac = macOf(kRows + made_++);
    device.name = name;
    write(row, device);
    devices_.at(static_cast<std::size_t>(row)) = device;
    return row;
}

void Population::remove(int row) {
    const std::lock_guard lock(mutex_);
    devices_.at(static_cast<std::size_t>(row)).reset();
    write(row, Device{});
}

void Population::customise(int row, const std::string& name, const std::string& type, const std::string& brand,
                           const std::string& model) {
    const std::lock_guard lock(mutex_);
    Device& device = devices_.at(static_cast<std::size_t>(row)).value();
    const auto apply = [&](const Field& custom, const Field& byDefault, const Field& shown, const std::string& value) {
        store_.set(custom.at(row), value);
        store_.set(shown.at(row), value.empty() ? store_.get(byDefault.at(row)) : value);
        return store_.get(shown.at(row));
    };
    device.name = apply(field::DeviceIdList::DisplayNameCustom, field::DeviceIdList::DisplayNameOstra,
                        field::DeviceIdList::DeviceDisplayName, name);
    device.type = apply(field::DeviceIdList::DeviceTypeCustom, field::DeviceIdList::DeviceTypeOstra,
                        field::DeviceIdList::DisplayType, type);
    device.brand = apply(field::DeviceIdList::DisplayBrandCustom, field::DeviceIdList::DeviceBrand,
                         field::DeviceIdList::DeviceDisplayBrand, brand);
    device.model = apply(field::DeviceIdList::DisplayModelCustom, field::DeviceIdList::DeviceModel,
                         field::DeviceIdList::DeviceDisplayModel, model);
}

void Population::setOnline(int row, bool online) {
    const std::lock_guard lock(mutex_);
    devices_.at(static_cast<std::size_t>(row)).value().online = online;
    store_.set(field::Dilsignature::Devicestate.at(row), online ? "UP" : "DOWN");
}

void Population::refresh(int row) {
    const std::lock_guard lock(mutex_);
    ++walked_;
    store_.set(signalOf(row, devices_.at(static_cast<std::size_t>(row)).value()));
}

std::optional<int> Population::rowOf(const Mac& mac) const {
    const std::lock_guard lock(mutex_);
    const auto place = std::find_if(devices_.begin(), devices_.end(),
                                    [&](const auto& device) { return device && device->mac == mac; });
    return place == devices_.end() ? std::nullopt : std::optional(static_cast<int>(place - devices_.begin()));
}

int Population::find(const std::string& nameOrMac) const {
    const std::lock_guard lock(mutex_);
    std::string some;
    for (int row = 0; row < kRows; ++row) {
        const auto& device = devices_.at(static_cast<std::size_t>(row));
        if (device && (sameName(device->name, nameOrMac) || sameName(macText(device->mac), nameOrMac))) {
            return row;
        }
        if (device && row < 4) {
            some += (some.empty() ? "; there are \"" : ", \"") + device->name + "\"";
        }
    }
    throw std::runtime_error("no device \"" + nameOrMac + "\"" + some);
}

std::vector<int> Population::rows(std::optional<bool> online) const {
    const std::lock_guard lock(mutex_);
    std::vector<int> found;
    for (int row = 0; row < kRows; ++row) {
        const auto& device = devices_.at(static_cast<std::size_t>(row));
        if (device && device->online == online.value_or(device->online)) {
            found.push_back(row);
        }
    }
    return found;
}

Device Population::at(int row) const {
    const std::lock_guard lock(mutex_);
    return devices_.at(static_cast<std::size_t>(row)).value();
}

}  // namespace lab

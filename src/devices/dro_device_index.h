// dro_device_index.h - a store field that contains the row of one changed device. The device service writes the row;
// the agent resets the field to fields::kNoDevice after handling the device. Any thread.
#pragma once

#include <cstdint>

#include "dro_places.h"
#include "dro_store.h"
#include "dro_sync.h"

namespace dro {

class DeviceIndex {
 public:
    explicit DeviceIndex(const Field& field);

    // For the field's change handler. Returns the row in the field, or fields::kNoDevice, also when the read fails.
    std::uint32_t read();

    // Resets the field. If it contains a row that read() has not returned since the last reset, returns that row, and
    // the caller handles the device. Otherwise returns fields::kNoDevice. A row written between this function's read
    // and its write is lost.
    std::uint32_t reset();

    // Takes a place for the thread that will handle the device at `row`. When no place is free, logs `what`, calls
    // `dropped` and resets the field. If reset() returns another device, sets `row` to it and tries again. Returns null
    // when every device was dropped.
    Place take_place_for(std::uint32_t& row, const char* what, void (*dropped)());

 private:
    Field field_;
    Mutex mutex_;  // makes the read and write of reset() one step for the change handler
    std::uint32_t handled_ DRO_GUARDED_BY(mutex_);
};

}  // namespace dro

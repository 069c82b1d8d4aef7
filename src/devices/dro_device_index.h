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

    // Resets the field. Returns a row found in it that read() has not returned since the last reset; the caller handles
    // that device. Returns fields::kNoDevice when there is none. A row written between this function's read and write
    // is lost.
    std::uint32_t reset();

    // Takes the place of the thread for the device at `row`. Without a free place, logs `what`, calls `dropped` and
    // resets the field; a device that the reset finds becomes `row` and is tried as well. Returns null when every
    // device was dropped.
    Place take_place_for(std::uint32_t& row, const char* what, void (*dropped)());

 private:
    Field field_;
    Mutex mutex_;  // the change handler sees the read and the write as one step
    std::uint32_t handled_ DRO_GUARDED_BY(mutex_);
};

}  // namespace dro

// dro_device_index.h - a store field that holds the row of one changed device. The device service writes the row; the
// agent resets the field to fields::kNoDevice once it has handled the device. Any thread.
#pragma once

#include <cstdint>

#include "dro_store.h"
#include "dro_sync.h"

namespace dro {

class DeviceIndex {
 public:
    explicit DeviceIndex(const Field& field);

    // For the field's change handler: the row in the field, or fields::kNoDevice, also when it cannot be read.
    std::uint32_t read();

    // Resets the field. Returns a row that was in it and that read() has not returned since the last reset: the caller
    // handles that device. fields::kNoDevice when there is none. A row written between the read and the write of this
    // function is lost.
    std::uint32_t reset();

 private:
    Field field_;
    Mutex mutex_;  // makes the read and the write one step for the change handler
    std::uint32_t handled_ DRO_GUARDED_BY(mutex_);
};

}  // namespace dro

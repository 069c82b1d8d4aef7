#include "dro_device_index.h"

#include <utility>

#include "dro_fields.h"

namespace dro {

DeviceIndex::DeviceIndex(const Field& field) : field_(field), handled_(fields::kNoDevice) {}

std::uint32_t DeviceIndex::read() {
    const MutexLock lock(mutex_);
    handled_ = read_uint(field_, fields::kNoDevice);
    return handled_;
}

std::uint32_t DeviceIndex::reset() {
    const MutexLock lock(mutex_);
    const std::uint32_t row = read_uint(field_, fields::kNoDevice);
    // After a failed write the row is still in the field. It counts as handled; otherwise every reset would return it
    // again.
    const std::uint32_t left = write_uint(field_, fields::kNoDevice) == HAB_OK ? fields::kNoDevice : row;
    return row == std::exchange(handled_, left) ? fields::kNoDevice : row;
}

Place DeviceIndex::take_place_for(std::uint32_t& row, const char* what, void (*dropped)()) {
    for (; row != fields::kNoDevice; row = reset()) {
        if (Place place = take_place()) {
            return place;
        }
        log_no_place(what);
        dropped();
    }
    return nullptr;
}

}  // namespace dro

// dro_get_set_config_service.h - requests to the device service: operands, a feature code, then the start. Any thread.
#pragma once

#include <cstdint>

#include "dro_store.h"

namespace dro {

// Feature codes of the device service.
enum Feature : std::uint32_t {
    kFeatureTag = 2,
    kFeatureSpeedTest = 5,
    kFeatureUnblock = 6,
    kFeatureBlock = 7,
    kFeatureList = 8,
    kFeatureCustomise = 9,
    kFeatureRemove = 10,
    kFeatureBlockList = 11,
    kFeatureUnblockList = 12,
};

// Starts the device service on what was written. Returns the store's status.
int trigger_device_service(Where where = DRO_HERE);

// Writes that a list is wanted, and which: "occupied" for all devices, "online" or "offline"; null leaves what was
// asked for last. Does not start the service.
void select_list(const char* which);

// Asks for the whole list. Returns the status of the start.
int request_whole_list();

// The same, for lists that no transaction waits for.
void setField_SyncCD();

}  // namespace dro

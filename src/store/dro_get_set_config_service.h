// dro_get_set_config_service.h - requests to the device service: operands, a feature code, then the trigger. Any
// thread.
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

// Makes the device service execute the written request. Returns the store's status.
int trigger_device_service(Where where = DRO_HERE);

// Writes a request for a list: "occupied" for all devices, "online" or "offline"; null keeps the last selection. Does
// not trigger the service.
void select_list(const char* which);

// Requests the whole list. Returns the status of the trigger.
int request_whole_list();

// As request_whole_list, for a list that answers no transaction.
void setField_SyncCD();

}  // namespace dro

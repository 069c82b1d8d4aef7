// dro_get_set_config_checkpoint.h - the progress marks of a device-list sync, for diagnosis in the store. Any thread.
#pragma once

#include "dro_store.h"

namespace dro {

// Progress marks by number.
enum CdilCheckpoint : unsigned {
    kPayloadStart = 0,
    kPayloadDone = 1,
    kListSuccessful = 2,
    kNotified = 3,
    kEnqueued = 4,  // written for every event, not only for lists
    kRequested = 5,
    kFetchReceived = 6,
    kRequestStarted = 7,
    kRequestFailed = 8,
};

// Returns the mark's text, "Unknown" for an unknown number.
const char* getCdilDroagentCheckpointMessage(unsigned index);

// Writes the mark to the store.
void write_checkpoint(CdilCheckpoint checkpoint, Where where = DRO_HERE);

}  // namespace dro

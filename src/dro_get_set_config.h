// dro_get_set_config.h - cloud commands: their envelope, their handlers, and the acknowledgement of each transaction.
//
// The handlers run on the thread that delivers the command and hold it until the acknowledgement is through. `uuid` is
// the transaction id, at most 127 characters; texts are NUL-terminated.
#pragma once

#include <cJSON.h>

#include <optional>

#include "dro_json.h"
#include "dro_store.h"

namespace dro {

// ---- Envelope ----

// Carries out the command in the envelope text `message`. Returns 0 when a handler was called or an unknown command was
// acknowledged, -1 on every other failure.
int parseUUIDBaseBuffer(const char* message);

// ---- Acknowledgement ----

inline constexpr unsigned kAckFailure = 0;
inline constexpr unsigned kAckSuccess = 1;

// Acknowledges a transaction, up to three attempts. Returns 1 when no attempt got an answer, else 0 (also when the
// cloud refused it).
int sendTransactionACK(const char* transactionId, unsigned status, const char* failureReason);

// Judges the answer to an acknowledgement: 0 accepted, -1 refused or unknown, 1 no JSON or no status.
int processTransAckApiResponse(const char* response);

// Notes the Circle service's state, as just acknowledged, in the store.
void updateSorbSyncDoneField();

// Progress marks of a device-list sync, by number.
enum CdilCheckpoint : unsigned {
    kPayloadStart = 0,
    kPayloadDone = 1,
    kListSuccessful = 2,
    kNotified = 3,
    kEnqueued = 4,
    kRequested = 5,
    kFetchReceived = 6,
    kRequestStarted = 7,
    kRequestFailed = 8,
};

// The mark's text; "Unknown" for a number that is none.
const char* getCdilDroagentCheckpointMessage(unsigned index);

// Writes the mark to the store.
void write_checkpoint(CdilCheckpoint checkpoint, Where where = DRO_HERE);

// Records a module's version in the store, row 0 of DalModuleVersion. Returns 0, or 1 on any store error.
int set_module_version_detail(const char* field, const char* version);

// ---- Device commands ----
// Each returns 0 when done, non-zero when it failed, and acknowledges by itself unless it says otherwise.

int setDTNSchedule(const char* uuid, const char* timeZone, const char* startTime, const char* endTime);
int setMAConDAL(const char* uuid, const char* command, const char* cdMac, int tagState);
int setBSTSchedule(const char* uuid, const char* command);
// Acknowledged by the device list that it asks for; only a failed request is acknowledged here.
int setclaimState(const char* uuid, const char* fetchFor);
// A null text leaves its field alone, an empty one clears it.
int customizeCD(const char* uuid, const char* cdMac, const char* name, const char* type, const char* brand,
                const char* model);
int block_unblock_device(const char* uuid, const char* cdMac, const char* mode);
// `elements` stays the caller's. At most 20 entries.
int block_unblock_device_bulk(const char* uuid, const cJSON* elements, const char* mode);
int remove_cdmac_from_device(const char* uuid, const char* cdMac);

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

// ---- Device list ----

// Asks the device service for the list that answers transaction `uuid`: status 0 all, 1 online, 2 offline devices.
// Returns 0; the list, or its time-out, is the answer.
int init_fetch_cd(const char* uuid, unsigned status, const char* fetchFor);

// Asks for the whole list. Returns the status of the trigger.
int request_whole_list();

// The same without a transaction.
void setField_SyncCD();

// Pushes the list `payload` (JSON text): as the pending transaction's answer, or as an unsolicited sync. Returns 1 when
// a transaction's answer got no response in three attempts, else 0. `transaction`, if given, receives the
// transaction's id, or the empty text for a sync.
int pushToCloud_cdil(const char* payload, FixedText<128>* transaction = nullptr);

// Judges the answer to a transaction's list, as processTransAckApiResponse does.
int processSyncCDResponse(const char* response);

}  // namespace dro

// dro_get_set_config_device.h - the device commands: write the operands and a feature code for the device service, then
// acknowledge. They run on the thread that delivers the command. `uuid` is the transaction id, at most 127 characters;
// texts are NUL-terminated. Each returns 0 on success, non-zero on failure.
#pragma once

#include <cJSON.h>

namespace dro {

int setDTNSchedule(const char* uuid, const char* timeZone, const char* startTime, const char* endTime);
int setMAConDAL(const char* uuid, const char* command, const char* cdMac, int tagState);
int setBSTSchedule(const char* uuid, const char* command);
// The requested device list acknowledges the command. Only a failed request is acknowledged here.
int setclaimState(const char* uuid, const char* fetchFor);
// A null text leaves its field unchanged, an empty one clears it.
int customizeCD(const char* uuid, const char* cdMac, const char* name, const char* type, const char* brand,
                const char* model);
// `mode` is "block" or "unblock".
int block_unblock_device(const char* uuid, const char* cdMac, const char* mode);
// At most 20 entries. The caller keeps `elements`.
int block_unblock_device_bulk(const char* uuid, const cJSON* elements, const char* mode);
int remove_cdmac_from_device(const char* uuid, const char* cdMac);

}  // namespace dro

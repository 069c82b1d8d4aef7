// dro_get_set_config_list.h - the list of devices that the cloud fetches. Runs on the thread that delivers the command.
#pragma once

namespace dro {

// Asks the device service for the list that answers transaction `uuid`: status 0 all, 1 online, 2 offline devices.
// Returns 0; the list, or its time-out, is the answer.
int init_fetch_cd(const char* uuid, unsigned status, const char* fetchFor);

}  // namespace dro

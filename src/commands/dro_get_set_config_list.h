// dro_get_set_config_list.h - the device list that the cloud fetches. Runs on the thread that delivers the command.
#pragma once

namespace dro {

// Requests the list for transaction `uuid` from the device service. `status` selects the devices: 0 all, 1 online, 2
// offline. Returns 0. The transaction is answered by the list, or by a failure after a time-out.
int init_fetch_cd(const char* uuid, unsigned status, const char* fetchFor);

}  // namespace dro

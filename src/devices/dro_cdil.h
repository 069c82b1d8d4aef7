// dro_cdil.h - the connected-device list and single-device updates: from the device service's notices to the queue.
#pragma once

#include <cJSON.h>

#include <array>
#include <cstdint>

#include "dro_monitor.h"

namespace dro {

// Device rows of one list, ascending. Eight 32-bit masks select at most 256.
using IndexList = std::array<std::uint32_t, 256>;

// Subscribes to the list's status, device updates, the list watch's flag and its result. Returns 0. Start-up only.
int init_cdil_dal_sub();

// ---- Device list (dro_cdil.cpp, its watch in dro_cdil_watch.cpp) ----

// Appends the rows set in mask `number` to `list` and adds them to `count`.
void search_for_index(std::uint32_t mask, int number, std::size_t& count, IndexList& list);

// Appends the record of the device at `index` to `array` (owned by the caller). `mode` is one of kRecord...
// (dro_utils_record.h).
void processConnectedDeviceList(cJSON* array, std::uint32_t index, int mode);

// Builds the list of the first `count` rows in `list` and queues it. Returns 0, also when the queue was full, or 1 when
// the list could not be built.
int syncCdil_timerExit(int count, const IndexList& list);

// The orders of FETCH_CD. give() writes DroStatus.cdilTimeout, whose notice starts the list's watch
// (dro_cdil_watch.cpp).
Orders& list_orders();

// Called after the dispatcher has pushed a list. Records the success and wakes the watches of `transaction`, which the
// list answered; empty when it answered none.
void report_list_pushed(const char* transaction);

// Change handlers, on the store's delivery thread.
void cdilStatus_cbHandler(void* context);
void cdilTimeout_cbHandler(void* context);
void cdilDebugStatus_cbHandler(void* context);

// Thread body: one sync cycle.
void t_Handler_cdilSync();

// ---- Single devices (dro_cdil_update.cpp) ----

// Change handler of the update notifier, on the store's delivery thread.
void cdUpdate_cbHandler(void* context);
void t_Handler_cdUpdate(std::uint32_t index);

}  // namespace dro

// The device list: from the index masks to the queue, one cycle at a time.
#include "dro_cdil.h"

#include <algorithm>
#include <cerrno>

#include "dro_dispatcher.h"
#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_get_set_config_checkpoint.h"
#include "dro_get_set_config_push.h"
#include "dro_json.h"
#include "dro_log.h"
#include "dro_output.h"
#include "dro_places.h"
#include "dro_stop.h"
#include "dro_sync.h"
#include "dro_threads.h"
#include "dro_utils_record.h"

namespace dro {
namespace {

constexpr Field kListStatus{"DALHNotifyCDIL", "CDILstatus"};
constexpr Field kTotalCount{"DALHNotifyCDIL", "TotalIndexcount"};
constexpr Field kUpdateNotice{"DALHNotifyCDUPDATE", "IndexCD"};  // spelling in notices; reads and writes use IndexCd

constexpr std::array<const char*, 8> kMasks{"IndexBitMask0", "IndexBitMask1", "IndexBitMask2", "IndexBitMask3",
                                            "IndexBitMask4", "IndexBitMask5", "IndexBitMask6", "IndexBitMask7"};
constexpr std::uint32_t kMaskBits = 32;
constexpr std::size_t kLongestPayload = 0x40000;
constexpr const char* kDropped = "CDIL Publishing Failed! Exiting thread!\n";

Mutex mutex_cdilSync;  // serialises the cycles, including their store accesses

// Reads this cycle's rows into `list`. Returns the number of rows set in the masks.
std::size_t read_masks(IndexList& list) {
    std::array<std::uint32_t, kMasks.size()> masks{};
    for (std::size_t number = 0; number < kMasks.size(); ++number) {
        masks[number] = read_uint({"DALHNotifyCDIL", kMasks[number]});
    }
    std::size_t count = 0;
    for (std::size_t number = 0; number < kMasks.size(); ++number) {
        search_for_index(masks[number], static_cast<int>(number), count, list);
    }
    return count;
}

// Reads the rows of the list, then queues or pushes it.
void push_list() {
    IndexList list{};
    const std::size_t decoded = read_masks(list);
    const int total = read_int(kTotalCount, -1);
    write_checkpoint(kNotified);
    LOG_TRACE("count:%d\n ", static_cast<int>(decoded));
    LOG_TRACE("Got new connected devices to sync\nNo of new devices are:%d\n ", total);
    if (total == 0) {
        LOG_TRACE("No Indexes for the CDIL Sync will send the Json as empty\n");
        pushToCloud_cdil("[]");  // not queued, so it wakes no watch
    } else if (syncCdil_timerExit(std::min(total, static_cast<int>(decoded)), list) == 0) {
        LOG_TRACE("CDIL Sync to cloud successfull!!\n");
    } else {
        LOG_NOTICE("Unable to Sync CDIL to cloud!! Will Sync in Next try!\n");
    }
}

// Never writes "init" over "init": on a store that reports every write, the reset would trigger itself forever.
void reset_status(const FixedText<16>& status) {
    if (status != "init") {
        write_enum(kListStatus, "init");
    }
}

// Called when no place for a thread is free. The list is dropped, as for a full queue.
void drop_list() {
    const auto status = read_enum<16>(kListStatus);
    if (status == "complete") {
        log_no_place("CDIL");
        LOG_ERROR("%s", kDropped);
    }
    reset_status(status);
}

void sync_list() {
    LOG_TRACE("Starting getting Index BIT mask from DALH \n");
    int result = 0;
    if (!mutex_cdilSync.lock(result)) {
        LOG_ERROR("Unable to Lock Activation Mutex\n");
        errno = result;
        print_error("pthread_mutex_lock");
        return;
    }
    const AdoptedLock held(mutex_cdilSync);
    if (!stop_requested()) {
        push_list();
    }
    // Also on a stop: without the reset, the next list would not change the field, and no notice would be sent.
    write_enum(kListStatus, "init");
}

}  // namespace

int init_cdil_dal_sub() {
    LOG_TRACE("On Subscription, state of CDIL is %s\n", read_enum<16>(kListStatus).c_str());
    LOG_TRACE("Registering Callback on CDIL Support Data Object!\n");
    on_change(kListStatus, cdilStatus_cbHandler);
    on_change(kUpdateNotice, cdUpdate_cbHandler);
    on_change(fields::cdilTimeout, cdilTimeout_cbHandler);
    on_change(fields::cdilDebugStatus, cdilDebugStatus_cbHandler);
    after_push("CDIL", report_list_pushed);
    return 0;
}

void search_for_index(std::uint32_t mask, int number, std::size_t& count, IndexList& list) {
    for (std::uint32_t bit = 0; bit < kMaskBits && count < list.size(); ++bit) {
        if ((mask >> bit & 1U) != 0) {
            list[count++] = static_cast<std::uint32_t>(number) * kMaskBits + bit;
        }
    }
}

void processConnectedDeviceList(cJSON* array, std::uint32_t index, int mode) {
    Json device(cJSON_CreateObject());
    if (!device) {
        LOG_ERROR("[DROAGENT] - Failed to create cJSON root\n");
        return;
    }
    getConnectedDeviceData(static_cast<int>(index), device.get(), mode);
    cJSON_AddItemToArray(array, device.release());  // now owned by the array
}

int syncCdil_timerExit(int count, const IndexList& list) {
    const Json devices(cJSON_CreateArray());
    if (!devices) {
        LOG_ERROR("[DROAGENT] - Failed to create cJSON array\n");
        return 1;
    }
    write_checkpoint(kPayloadStart);
    for (int i = 0; i < count; ++i) {
        processConnectedDeviceList(devices.get(), list[static_cast<std::size_t>(i)], kRecordListSync);
    }
    const JsonText text(cJSON_PrintUnformatted(devices.get()));
    if (!text) {
        LOG_ERROR("[DROAGENT] - Failed to render CDIL JSON array to CDIL JSON payload.\n");
        return 1;
    }
    write_checkpoint(kPayloadDone);
    Event event{"CDIL", {}};
    addConnectedDeviceDataToQueue(event, kLongestPayload, text.get());
    if (enqueue_buf(event) != 0) {
        LOG_TRACE("CDIL Published Successfully, exiting thread!\n");
    } else {
        LOG_ERROR("%s", kDropped);
    }
    return 0;
}

void cdilStatus_cbHandler(void* /*context*/) {
    const bool supported = read_bool(fields::cdilSupport);
    LOG_NOTICE("Starting CDIl Thread!\n");
    if (!supported) {
        LOG_NOTICE("CDIL is Not support of the device! Will sync CDIL if the support is enabled!\n");
        return;
    }
    const Place place = take_place();
    if (!place) {
        drop_list();
        return;
    }
    const int result = start_detached([place] { t_Handler_cdilSync(); });
    if (result != 0) {
        LOG_ERROR("Failed to initialize Thread for CDILSync with error:%d\n", result);
        errno = result;
        print_error("Error:");
        end_process(1);
    }
    LOG_TRACE("Successful to spawn thread for CDIL Sync");
}

void t_Handler_cdilSync() {
    const auto status = read_enum<16>(kListStatus);
    LOG_TRACE("CDIL Status on DALHNotify is %s\n", status.c_str());
    if (status == "complete") {
        sync_list();
        return;
    }
    LOG_TRACE("Got invalid value for cdil status not initing sync to cloud!\n");
    reset_status(status);
}

}  // namespace dro

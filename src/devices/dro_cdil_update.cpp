// Queues the record of one changed device as a list of one.
#include "dro_cdil.h"

#include "dro_device_index.h"
#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_json.h"
#include "dro_log.h"
#include "dro_stop.h"
#include "dro_threads.h"
#include "dro_utils_record.h"

namespace dro {
namespace {

// The subscription uses a spelling with a capital last letter; the store accepts both.
constexpr Field kIndex{"DALHNotifyCDUPDATE", "IndexCd"};
constexpr std::size_t kLongestPayload = 1024;

DeviceIndex g_notifier(kIndex);

void mark_update() {
    write_ascii(fields::cdilsyncAt, "CD_UPDATE");
}

void log_dropped() {
    LOG_ERROR("UPDATE_CD Publishing Failed! Exiting thread!\n");
}

// An update without a thread leaves the same writes as one that finds the queue full.
void drop_update() {
    mark_update();
    log_dropped();
}

void start_update(std::uint32_t index) {
    const Place place = g_notifier.take_place_for(index, "UPDATE_CD", drop_update);
    if (!place) {
        return;
    }
    if (start_detached([index, place] { t_Handler_cdUpdate(index); }) != 0) {
        LOG_ERROR("Failed to initialize UPDATE_CD Sync thread to enqueue fifo\n");
        end_process(1);
    }
    LOG_TRACE("Successful to spawn UPDATE_CD thread for Device on Index %d\n", static_cast<int>(index));
}

}  // namespace

void cdUpdate_cbHandler(void* /*context*/) {
    const std::uint32_t index = g_notifier.read();
    if (index == fields::kNoDevice) {
        LOG_TRACE("Reset for the UPDATE_CD Index\n");
        return;
    }
    start_update(index);
}

void t_Handler_cdUpdate(std::uint32_t index) {
    LOG_TRACE("Index  = %d\n", static_cast<int>(index));
    const Json devices(cJSON_CreateArray());
    if (!devices) {
        LOG_ERROR("[DROAGENT] - Failed to create cJSON array\n");
        return;
    }
    processConnectedDeviceList(devices.get(), index, kRecordUpdate);
    const JsonText text(cJSON_PrintUnformatted(devices.get()));
    if (!text) {
        LOG_ERROR("[DROAGENT] - Failed to render UPDATE_CD JSON array to UPDATE_CD JSON payload.\n");
        return;
    }
    Event event{"UPDAT", {}};
    addConnectedDeviceDataToQueue(event, kLongestPayload, text.get());
    mark_update();
    if (enqueue_buf(event) == 1) {
        LOG_TRACE("UPDATE_CD Published Successfully, exiting thread!\n");
    } else {
        log_dropped();
    }
    const std::uint32_t missed = g_notifier.reset();
    if (missed != fields::kNoDevice && !stop_requested()) {
        start_update(missed);
    }
}

}  // namespace dro

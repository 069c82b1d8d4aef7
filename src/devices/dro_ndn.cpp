#include "dro_ndn.h"

#include <cerrno>

#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_json.h"
#include "dro_log.h"
#include "dro_output.h"
#include "dro_places.h"
#include "dro_threads.h"
#include "dro_utils_record.h"

namespace dro {
namespace {

constexpr std::size_t kLongestPayload = 1024;
constexpr const char* kDropped = "NDN Publishing Failed! Exiting thread!\n";

}  // namespace

int init_ndn_dal_sub() {
    on_change(fields::ndnIndex, ndnIndex_cbHandler);
    return 0;
}

void ndnIndex_cbHandler(void* /*context*/) {
    const unsigned index = read_uint(fields::ndnIndex, fields::kNoDevice);
    const Place place = take_place();
    if (!place) {
        log_no_place("NDN");
        LOG_ERROR("%s", kDropped);
        return;
    }
    errno = start_detached([index, place] { t_Handler_ndnSync(index); });
    if (errno != 0) {
        print_error("Failed to initialize Thread for ndnSync\n");
        end_process(1);
    }
    LOG_TRACE("Successful to spawn thread for Device on Index %d", static_cast<int>(index));
}

void t_Handler_ndnSync(unsigned index) {
    LOG_TRACE("Index in NDN t_Handler is %d\n", static_cast<int>(index));
    const Json device(cJSON_CreateObject());
    if (!device) {
        LOG_ERROR("[DROAGENT] - Failed to create cJSON root\n");
        return;
    }
    getConnectedDeviceData(static_cast<int>(index), device.get(), kRecordNewDevice);
    const JsonText text(cJSON_PrintUnformatted(device.get()));
    if (!text) {
        LOG_ERROR("[DROAGENT] - Failed to render NDN JSON object to NDN JSON payload.\n");
        return;
    }
    Event event{"NDNEV", {}};
    addConnectedDeviceDataToQueue(event, kLongestPayload, text.get());
    if (enqueue_buf(event) == 1) {
        LOG_TRACE("NDN Published Successfully, exiting thread!\n");
    } else {
        LOG_ERROR("%s", kDropped);
    }
}

}  // namespace dro

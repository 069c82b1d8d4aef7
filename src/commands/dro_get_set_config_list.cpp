#include "dro_get_set_config_list.h"

#include <array>

#include "dro_cdil.h"
#include "dro_fields.h"
#include "dro_get_set_config_checkpoint.h"
#include "dro_get_set_config_service.h"
#include "dro_log.h"

namespace dro {

int init_fetch_cd(const char* uuid, unsigned status, const char* fetchFor) {
    constexpr std::array<const char*, 3> kRequests{"occupied", "online", "offline"};
    LOG_TRACE("Setting CDIL timeout on DroStatus !\n");
    list_orders().give(
        {.uuid = FixedText<128>(uuid), .timestamp = read_ascii<16>(fields::cdilTimestamp), .place = take_place()});
    LOG_TRACE("Setting CDIL transUUID on DroStatus\n");
    write_ascii(fields::cdilTransUuid, uuid);
    LOG_TRACE("Setting CDIL fetchFor on drostatus\n");
    write_ascii(fields::cdilfetchFor, fetchFor);
    select_list(status < kRequests.size() ? kRequests[status] : nullptr);
    write_checkpoint(kRequested);
    trigger_device_service();
    return 0;
}

}  // namespace dro

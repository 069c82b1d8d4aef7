#include "dro_utils_server.h"

#include <cstring>

#include "dro_log.h"
#include "provisioning.h"

namespace dro {

int check_server(const char* url) {
    for (const char* marker : provisioning::kNonProductionMarkers) {
        if (std::strstr(url, marker) != nullptr) {
            LOG_TRACE("Loading droAgent on DEV/QA/STAG\n");
            return 0;
        }
    }
    if (std::strstr(url, provisioning::kProductionMarker) != nullptr) {
        LOG_TRACE("Loading droagent on PROD\n");
        return 1;
    }
    LOG_ERROR("Invalid URL Returning with Error\n");
    return -1;
}

}  // namespace dro

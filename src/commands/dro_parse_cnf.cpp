#include "dro_parse_cnf.h"

#include "dro_get_set_config_envelope.h"
#include "dro_json.h"
#include "dro_log.h"

namespace dro {

int parseConfigBuff(const char* message) {
    LOG_TRACE("[DROAGENT] : FUNC : %s - Received Data: %s\n", "parseConfigBuff", message);
    const Json parsed(cJSON_Parse(message));
    if (!parsed) {
        return 0;
    }
    if (json_text(parsed.get(), "UUID") == nullptr) {
        LOG_NOTICE("[DROAGENT] : A message without a UUID is ignored\n");
        return 0;
    }
    LOG_NOTICE("[DROAGENT] : UUID is present!\n");
    return parseUUIDBaseBuffer(message);
}

}  // namespace dro

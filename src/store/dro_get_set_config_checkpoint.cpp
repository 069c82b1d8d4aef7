#include "dro_get_set_config_checkpoint.h"

#include <array>

#include "dro_fields.h"

namespace dro {

const char* getCdilDroagentCheckpointMessage(unsigned index) {
    constexpr std::array<const char*, 9> kMessages{
        "CDIL payload creation start",
        "CDIL payload creation done",
        "CDIL Successfull",
        "CDIL notification after dalh processing",
        "CDIL payload enqueue successfull",
        "Update DALH for CDIL processing",
        "FETCH_CD command recieved from cloud",
        "CDIL response initiate curl request to cloud",
        "CDIL curl hit fail",
    };
    return index < kMessages.size() ? kMessages[index] : "Unknown";
}

void write_checkpoint(CdilCheckpoint checkpoint, Where where) {
    write_string(fields::dbgArg1, getCdilDroagentCheckpointMessage(checkpoint), where);
}

}  // namespace dro

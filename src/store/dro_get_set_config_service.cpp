#include "dro_get_set_config_service.h"

#include "dro_fields.h"

namespace dro {

int trigger_device_service(Where where) {
    return write_uint(fields::ProcessID, 1, where);
}

void select_list(const char* which) {
    write_bool(fields::CDILTrigger, true);
    write_uint(fields::FeatureID, kFeatureList);
    if (which != nullptr) {
        write_enum(fields::CDILRequest, which);
    }
}

int request_whole_list() {
    select_list("occupied");
    return trigger_device_service();
}

void setField_SyncCD() {
    request_whole_list();
}

}  // namespace dro

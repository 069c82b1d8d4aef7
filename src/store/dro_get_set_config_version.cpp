#include "dro_get_set_config_version.h"

#include "dro_log.h"
#include "dro_store.h"

namespace dro {

int set_module_version_detail(const char* field, const char* version) {
    LOG_TRACE("DroAgent:Entry Function:%s Line:%d input fieldname --:%s input version --:%s\n", __func__, __LINE__,
              field, version);
    return write_string({"DalModuleVersion", field}, version) == HAB_OK ? 0 : 1;
}

}  // namespace dro

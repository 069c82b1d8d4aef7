// dro_get_set_config_version.h - module versions that the router displays. Any thread.
#pragma once

namespace dro {

// Records a module's version in the store, row 0 of DalModuleVersion. Returns 0, or 1 on any store error.
int set_module_version_detail(const char* field, const char* version);

}  // namespace dro

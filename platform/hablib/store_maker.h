// store_maker.h - creates and upgrades store files. Returns HAB_ statuses and reports the cause of a failure on
// standard error.
#pragma once

#include <string>

namespace hab {

// Creates a store at `path` with every value at its default. The file appears there complete. `replace` allows an
// existing store, whose values are lost.
int makeStore(const std::string& path, bool replace);

// Upgrades the store at `path` to the library's schema, in one transaction.
int upgradeStore(const std::string& path);

}  // namespace hab

// store_maker.h - making store files and bringing them up to date. Answers HAB_ statuses and says on standard error
// what is wrong.
#pragma once

#include <string>

namespace hab {

// Puts a new store with every value at its default at `path`, whole from the first instant at which it can be seen
// there. `replace` admits that there is one already; its values are lost.
int makeStore(const std::string& path, bool replace);

// Brings the store at `path` to the library's schema, in one transaction.
int upgradeStore(const std::string& path);

}  // namespace hab

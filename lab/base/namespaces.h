// namespaces.h - a private network, /tmp and certificate folder for this process and its children.
#pragma once

#include <string>

namespace lab {

// To be called before any thread is started. `privateFolder` is made private as /tmp is: empty, and gone with the
// process. Returns an empty text, or why the host does not allow it (nothing has changed then). Throws
// std::runtime_error when it cannot be finished.
std::string enterOwnNamespaces(const std::string& privateFolder);

}  // namespace lab

// namespaces.h - private network, /tmp and certificate folder for this process and its children.
#pragma once

#include <string>

namespace lab {

// Call it before any thread starts. `privateFolder` becomes private in the same way as /tmp: it starts empty and is
// discarded with the process. Returns an empty text, or the reason why the host does not allow namespaces (nothing has
// changed then). Throws std::runtime_error when it fails halfway.
std::string enterOwnNamespaces(const std::string& privateFolder);

}  // namespace lab

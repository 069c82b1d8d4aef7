// namespaces.h - gives this process and its children a private network, /tmp and certificate folder.
#pragma once

#include <string>

namespace lab {

// Call it before any thread starts. /tmp and `privateFolder` become private: they start empty and are discarded with
// the process. Returns an empty text, or the reason why the host does not allow namespaces (nothing has changed then).
// Throws std::runtime_error when it fails halfway.
std::string enterOwnNamespaces(const std::string& privateFolder);

}  // namespace lab

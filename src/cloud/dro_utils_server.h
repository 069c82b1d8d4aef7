// dro_utils_server.h - maps a URL to one of the vendor's clouds. Any thread.
#pragma once

namespace dro {

// Returns the environment of `url`: 0 non-production, 1 production, -1 unknown.
int check_server(const char* url);

}  // namespace dro

// dro_utils_server.h - which of the vendor's clouds a URL belongs to. Any thread.
#pragma once

namespace dro {

// Which environment `url` belongs to: 0 non-production, 1 production, -1 unknown.
int check_server(const char* url);

}  // namespace dro

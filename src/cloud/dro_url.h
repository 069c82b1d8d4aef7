// dro_url.h - the cloud's endpoints. Built at start-up; read from any thread afterwards, when they do not change.
#pragma once

#include "dro_text.h"

namespace dro {

// A URL of at most 127 characters: the base URL and a path, cut there.
using EndpointUrl = FixedText<128>;

extern EndpointUrl BOOT_API;
extern EndpointUrl GENERIC_API;
extern EndpointUrl TRANSACK_API;
extern EndpointUrl PUSHSTDATA_API;
extern EndpointUrl CIRCLE_CUUID_API;
extern EndpointUrl CIRCLE_STATUS_API;

// Builds the endpoints from the base URL in the identity record. Returns 0.
int get_api_url();

}  // namespace dro

// dro_url.h - the cloud's endpoints. Built at start-up and constant afterwards, when any thread may read them.
#pragma once

#include "dro_text.h"

namespace dro {

// The base URL and a path, truncated to 127 characters.
using EndpointUrl = FixedText<128>;

extern EndpointUrl BOOT_API;
extern EndpointUrl GENERIC_API;
extern EndpointUrl TRANSACK_API;
extern EndpointUrl PUSHSTDATA_API;
extern EndpointUrl CIRCLE_CUUID_API;
extern EndpointUrl CIRCLE_STATUS_API;

// Builds the endpoints from the base URL in the identity record, and logs an error when that is not a valid https URL:
// every request then fails (curl_post). Returns 0.
int get_api_url();

}  // namespace dro

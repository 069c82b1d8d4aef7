// dro_url.h - the cloud's endpoints, and the start of what carries device events to it. Start-up only; the endpoints
// are read from any thread afterwards and do not change.
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

// Starts the subscriptions and threads whose support switches the store has set; a switch that cannot be read is off.
// Returns 0.
int init_devToCld_push_sync();

}  // namespace dro

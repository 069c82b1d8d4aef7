// dro_url_pipeline.h - the start of what carries device events to the cloud. Start-up only.
#pragma once

namespace dro {

// Starts the subscriptions and threads whose support switches the store has set; a switch that cannot be read is off.
// Returns 0.
int init_devToCld_push_sync();

}  // namespace dro

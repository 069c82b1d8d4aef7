// dro_url_pipeline.h - starts the pipeline that carries device events to the cloud. Start-up only.
#pragma once

namespace dro {

// Starts the subscriptions and threads that are enabled by their support switches in the store. A switch that cannot be
// read is off. Returns 0.
int init_devToCld_push_sync();

}  // namespace dro

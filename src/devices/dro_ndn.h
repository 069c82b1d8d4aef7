// dro_ndn.h - queues the record of a new device in the network.
#pragma once

namespace dro {

// Watches the new-device notifier. Returns 0. Start-up only.
int init_ndn_dal_sub();

// Handler of the notifier, on the store's delivery thread. Starts t_Handler_ndnSync for the index it reads.
void ndnIndex_cbHandler(void* context);
void t_Handler_ndnSync(unsigned index);

}  // namespace dro

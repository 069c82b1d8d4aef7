// dro_ndn.h - a new device joined the network: its record goes to the queue.
#pragma once

namespace dro {

// Watches the new-device notifier. Returns 0. Start-up only.
int init_ndn_dal_sub();

// The notifier's handler, on the store's delivery thread; starts t_Handler_ndnSync for the index it reads.
void ndnIndex_cbHandler(void* context);
void t_Handler_ndnSync(unsigned index);

}  // namespace dro

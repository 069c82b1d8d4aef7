// dro_dtn.h - a tagged device went online or offline: a notification goes to the queue.
#pragma once

namespace dro {

// Watches the tagged-device notifier. Returns 0. Start-up only.
int init_dtn_dal_sub();

// The notifier's handler, on the store's delivery thread; starts t_Handler_dtnSync unless the index says "none
// pending".
void dtnIndex_cbHandler(void* context);
// Follows the push of a notification: resets the notifier, and handles a device that was written meanwhile. Dispatcher
// thread; `transaction` is not used.
void reset_tagged_device(const char* transaction);
void t_Handler_dtnSync(unsigned index);

}  // namespace dro

// dro_dtn.h - queues a notification when a tagged device goes online or offline.
#pragma once

namespace dro {

// Watches the tagged-device notifier. Returns 0. Start-up only.
int init_dtn_dal_sub();

// Handler of the notifier, on the store's delivery thread. Starts t_Handler_dtnSync unless the index is
// fields::kNoDevice.
void dtnIndex_cbHandler(void* context);
// Runs after a notification was pushed: resets the notifier, and handles a device written in the meantime. Dispatcher
// thread; `transaction` is not used.
void reset_tagged_device(const char* transaction);
void t_Handler_dtnSync(unsigned index);

}  // namespace dro

// dro_bst.h - a background speed test finished: its results go to the queue.
#pragma once

namespace dro {

// Watches the speed test's status. Returns 0. Start-up only.
int init_BST_dal_sub();

// The status's handler, on the store's delivery thread: "Complete" queues the results.
void bstStatus_cbHandler(void* context);

}  // namespace dro

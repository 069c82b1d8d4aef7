// dro_bst.h - queues the results of a finished background speed test.
#pragma once

namespace dro {

// Watches the speed test's status. Returns 0. Start-up only.
int init_BST_dal_sub();

// Handler of the status, on the store's delivery thread: "Complete" queues the results.
void bstStatus_cbHandler(void* context);

}  // namespace dro

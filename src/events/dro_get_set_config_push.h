// dro_get_set_config_push.h - pushes the connected-device list to the cloud. Any thread.
#pragma once

#include "dro_text.h"

namespace dro {

// Pushes the list `payload` (JSON text), as the pending transaction's answer or as an unsolicited sync. Returns 1 when
// a transaction's answer got no response in three attempts, else 0. `transaction`, if not null, receives the
// transaction's id; it is left unchanged for an unsolicited sync.
int pushToCloud_cdil(const char* payload, FixedText<128>* transaction = nullptr);

// Evaluates the answer to a transaction's list, as processTransAckApiResponse does.
int processSyncCDResponse(const char* response);

}  // namespace dro

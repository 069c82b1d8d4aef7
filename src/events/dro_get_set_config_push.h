// dro_get_set_config_push.h - the connected-device list on its way to the cloud. Any thread.
#pragma once

#include "dro_text.h"

namespace dro {

// Pushes the list `payload` (JSON text): as the pending transaction's answer, or as an unsolicited sync. Returns 1 when
// a transaction's answer got no response in three attempts, else 0. `transaction`, if given, receives the
// transaction's id, or the empty text for a sync.
int pushToCloud_cdil(const char* payload, FixedText<128>* transaction = nullptr);

// Judges the answer to a transaction's list, as processTransAckApiResponse does.
int processSyncCDResponse(const char* response);

}  // namespace dro

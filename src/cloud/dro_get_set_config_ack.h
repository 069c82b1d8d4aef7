// dro_get_set_config_ack.h - the acknowledgement of a transaction. Any thread.
#pragma once

namespace dro {

inline constexpr unsigned kAckFailure = 0;
inline constexpr unsigned kAckSuccess = 1;

// Acknowledges a transaction, of whose id 127 characters count, up to three attempts. Returns 1 when no attempt got an
// answer, else 0 (also when the cloud refused it).
int sendTransactionACK(const char* transactionId, unsigned status, const char* failureReason);

// Judges the answer to an acknowledgement: 0 accepted, -1 refused or unknown, 1 no JSON or no status.
int processTransAckApiResponse(const char* response);

// Notes the Circle service's state, as just acknowledged, in the store.
void updateSorbSyncDoneField();

}  // namespace dro

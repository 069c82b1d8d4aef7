// dro_get_set_config_ack.h - the acknowledgement of a transaction. Any thread.
#pragma once

namespace dro {

inline constexpr unsigned kAckFailure = 0;
inline constexpr unsigned kAckSuccess = 1;

// Acknowledges a transaction in up to three attempts. `transactionId` has at most 127 characters. Returns 1 when no
// attempt was answered, else 0 (also when the cloud refused it).
int sendTransactionACK(const char* transactionId, unsigned status, const char* failureReason);

// Evaluates the answer to an acknowledgement. Returns 0 for accepted, -1 for refused or unknown, 1 when it is not JSON
// or has no status.
int processTransAckApiResponse(const char* response);

// Writes the Circle service's acknowledged state to the store.
void updateSorbSyncDoneField();

}  // namespace dro

// cloud_summary.h - one-line summaries of cloud requests for the user. Pure functions for any thread.
#pragma once

#include <string>

#include "cloud_record.h"

namespace lab {

// Returns a summary such as "transactionAck/ 1 Success (1f0c...)". An invalid request is marked WRONG, with the reason.
std::string summary(const CloudRequest& request);

// The device list in an acknowledgement or a sync; null when there is none. Valid as long as the request.
const Json& deviceListOf(const CloudRequest& request);

}  // namespace lab

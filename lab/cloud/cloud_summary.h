// cloud_summary.h - one line for a person about a request to the cloud. Pure functions, for any thread.
#pragma once

#include <string>

#include "cloud_record.h"

namespace lab {

// Such as: transactionAck/ 1 Success (1f0c...). Says WRONG and why when the request failed the checks.
std::string summary(const CloudRequest& request);

// The device list in an acknowledgement or a sync; null when there is none. It belongs to the request.
const Json& deviceListOf(const CloudRequest& request);

}  // namespace lab

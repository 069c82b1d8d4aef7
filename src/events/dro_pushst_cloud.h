// dro_pushst_cloud.h - pushes speed-test results to the cloud. Dispatcher thread only.
#pragma once

namespace dro {

// Pushes `payload` (JSON text) as a speed test of `type` "B" (scheduled) or "M". Makes up to three attempts. Returns 0
// when a request was made, whatever the answer, or 1 for another type.
int pushTocloud_bstdata(const char* type, const char* payload);

// Evaluates an answer. Returns 0 for accepted, -1 for refused or unknown, 1 when it is not JSON or has no status.
int processpushdataApiResponse(const char* body);

}  // namespace dro

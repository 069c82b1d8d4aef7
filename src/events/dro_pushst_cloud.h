// dro_pushst_cloud.h - pushes speed-test results to the cloud. Dispatcher thread only.
#pragma once

namespace dro {

// Pushes `payload` (JSON text) as a speed test of `type` "B" (scheduled) or "M". Up to three attempts. Returns 0 when a
// request was made, whatever the answer, or 1 for another type.
int pushTocloud_bstdata(const char* type, const char* payload);

// Evaluates an answer: 0 accepted, -1 refused or unknown, 1 no JSON or no status.
int processpushdataApiResponse(const char* body);

}  // namespace dro

// dro_generic_cloud_push.h - pushes device events to the cloud's generic endpoint. Dispatcher thread only.
#pragma once

namespace dro {

// Pushes `payload` (JSON text, may be null) as an event of `type` "NDN", "DTN" or "UPDATE_CD", matched by prefix. Makes
// up to three attempts. Returns 1 when the event is finished (accepted, no payload, or never answered), 0 when the
// cloud refused it or the type is unknown.
int pushToCloud_generic(const char* type, const char* payload);

// Evaluates an answer. Returns 0 for accepted, -1 for refused or unknown, 1 when it is not JSON or has no status.
int processGenericApiResponse(const char* body);

}  // namespace dro

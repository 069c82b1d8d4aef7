// dro_generic_cloud_push.h - pushes device events to the cloud's generic endpoint. Dispatcher thread only.
#pragma once

namespace dro {

// Pushes `payload` (JSON text, may be null) as an event of `type` "NDN", "DTN" or "UPDATE_CD", matched by prefix. Up to
// three attempts. Returns 1 when the event is finished (accepted, no payload, or never answered), 0 when the cloud
// refused it or the type is unknown.
int pushToCloud_generic(const char* type, const char* payload);

// Evaluates an answer: 0 accepted, -1 refused or unknown, 1 no JSON or no status.
int processGenericApiResponse(const char* body);

}  // namespace dro

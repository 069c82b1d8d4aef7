// dro_generic_cloud_push.h - device events to the cloud's generic endpoint. Dispatcher thread only.
#pragma once

namespace dro {

// Pushes `payload` (JSON text, may be null) as an event of `type`: "NDN", "DTN" or "UPDATE_CD", by their first letters.
// Up to three attempts. Returns 1 when the event is finished (accepted, no payload, or never answered), 0 when the
// cloud refused it or the type is none of these.
int pushToCloud_generic(const char* type, const char* payload);

// 0 accepted, -1 refused or unknown, 1 no JSON or no status.
int processGenericApiResponse(const char* body);

}  // namespace dro

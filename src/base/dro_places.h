// dro_places.h - bounds the threads that outside input can cause: monitors and producers. Any thread.
#pragma once

#include <memory>

#include "dro_log.h"

namespace dro {

// A place for one such thread. It is taken before the thread is created, stored in the order or in the thread's
// closure, and free again when its last copy is destroyed.
using Place = std::shared_ptr<const void>;

// Sets the number of places; without this call there is no limit. Call it before any thread starts.
void set_places(unsigned count);

// Returns null when all places are taken, or when out of memory.
Place take_place();

// Logs, as an error, that no place is left for `what`: an order's flag, or an event's type.
void log_no_place(const char* what, Where where = DRO_HERE);

}  // namespace dro

// dro_places.h - bounds the threads that outside input can cause: monitors and producers. Any thread.
#pragma once

#include <memory>

#include "dro_log.h"

namespace dro {

// A place for one such thread, free again when its last copy is destroyed. Taken before the thread is created; the
// order or the thread's closure carries it.
using Place = std::shared_ptr<const void>;

// Sets the number of places. Before any thread starts; until then there is no limit.
void set_places(unsigned count);

// Returns null when all places are taken, or when out of memory.
Place take_place();

// Logs, as an error, that no place is left for `what`: an order's flag, or an event's type.
void log_no_place(const char* what, Where where = DRO_HERE);

}  // namespace dro

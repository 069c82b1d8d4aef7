#include "dro_places.h"

#include <atomic>
#include <limits>
#include <new>

namespace dro {
namespace {

std::atomic<unsigned> g_places{std::numeric_limits<unsigned>::max()};
std::atomic<unsigned> g_taken{0};

}  // namespace

void set_places(unsigned count) {
    g_places = count;
}

Place take_place() {
    unsigned taken = g_taken;
    do {
        if (taken >= g_places) {
            return nullptr;
        }
    } while (!g_taken.compare_exchange_weak(taken, taken + 1));
    try {
        return Place(&g_taken, [](const void* /*counter*/) { --g_taken; });
    } catch (const std::bad_alloc&) {  // the place is free again
        return nullptr;
    }
}

void log_no_place(const char* what, Where where) {
    log_printf(kError, where.file, where.line, "All %u places for monitors and producers are taken: none for %s\n",
               g_places.load(), what);
}

}  // namespace dro

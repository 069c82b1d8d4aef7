// dro_log.h - log macros that record the source location. Any thread.
#pragma once

#include <habdynlog.h>

namespace dro {

// Levels of the router's log library.
inline constexpr int kTrace = 1;   // detailed progress
inline constexpr int kNotice = 2;  // notable events
inline constexpr int kError = 4;

// A caller's source location. A default argument `Where where = DRO_HERE` captures it.
struct Where {
    const char* file;
    int line;
};

}  // namespace dro

#define DRO_HERE \
    { __builtin_FILE(), __builtin_LINE() }

#define LOG_AT(level, ...) log_printf((level), __FILE__, __LINE__, __VA_ARGS__)
#define LOG_TRACE(...) LOG_AT(::dro::kTrace, __VA_ARGS__)
#define LOG_NOTICE(...) LOG_AT(::dro::kNotice, __VA_ARGS__)
#define LOG_ERROR(...) LOG_AT(::dro::kError, __VA_ARGS__)

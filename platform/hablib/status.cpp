#include <array>

#include "hablib.h"

namespace {

constexpr std::array<const char*, 10> kTexts{
    "done",
    "the store stayed busy",
    "the session is closed",
    "no such table, field or row",
    "the text is too long",
    "an argument is missing or malformed",
    "the field has another type",
    "a byte above 127 where only ascii is allowed",
    "the store failed or is gone",
    "unknown error",
};

}  // namespace

const char* hab_error_string(int status) {
    return status >= 0 && status <= HAB_UNKNOWN ? kTexts[static_cast<unsigned>(status)] : "unknown status";
}

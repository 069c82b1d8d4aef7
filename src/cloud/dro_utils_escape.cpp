#include "dro_utils_escape.h"

namespace dro {

int escapeJSON(const char* source, char* destination, std::size_t length) {
    if (source == nullptr || destination == nullptr || length == 0) {
        return -1;
    }
    constexpr unsigned char kDropped = 0x96;  // the one byte above 0x7F that the cloud rejects
    for (std::size_t i = 0; i < length; ++i) {
        const char byte = source[i];
        char escape = '\0';
        switch (byte) {
            case '\b':
                escape = 'b';
                break;
            case '\t':
                escape = 't';
                break;
            case '\n':
                escape = 'n';
                break;
            case '\f':
                escape = 'f';
                break;
            case '\r':
                escape = 'r';
                break;
            case '"':
            case '\\':
                escape = byte;
                break;
            default:
                break;
        }
        const auto value = static_cast<unsigned char>(byte);
        if (escape != '\0') {
            *destination++ = '\\';
            *destination++ = escape;
        } else if (value >= 0x20 && value != kDropped) {
            *destination++ = byte;
        }
    }
    *destination = '\0';
    return 0;
}

}  // namespace dro

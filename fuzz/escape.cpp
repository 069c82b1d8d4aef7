// Escapes texts for a JSON string. The result parses to the input, without the bytes that the cloud rejects.
#include <cJSON.h>

#include <algorithm>
#include <memory>

#include "dro_json.h"
#include "dro_utils_escape.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Exactly `size` bytes, so the sanitizer detects an overrun.
    const auto source = std::make_unique<char[]>(size);
    std::copy_n(data, size, source.get());
    const auto escaped = std::make_unique<char[]>(2 * size + 1);
    const int result = dro::escapeJSON(source.get(), escaped.get(), size);
    fuzz::require(result == (size == 0 ? -1 : 0));
    if (size == 0) {
        return 0;
    }
    std::string kept(source.get(), size);
    std::erase_if(kept, [](char byte) {
        const bool control = static_cast<unsigned char>(byte) < 0x20;
        return byte == '\x96' || (control && std::string_view("\b\t\n\f\r").find(byte) == std::string_view::npos);
    });
    const dro::Json parsed(cJSON_Parse(("\"" + std::string(escaped.get()) + "\"").c_str()));
    const char* text = cJSON_GetStringValue(parsed.get());
    fuzz::require(text != nullptr && text == kept);
    return 0;
}

#include "value.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "hablib.h"

namespace hab {

namespace {

constexpr std::array<const char*, 8> kTypeNames{"ascii", "string", "enum", "bool", "int", "uint", "ipv4", "mac"};
constexpr std::size_t kMacSize = 6;
constexpr std::size_t kMacText = 17;
constexpr std::size_t kIpv4Size = 4;

struct Range {
    std::int64_t least;
    std::int64_t most;
};

Range rangeOf(Type type) {
    switch (type) {
        case Type::kBool:
            return {0, 1};
        case Type::kInt:
            return {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()};
        default:
            return {0, std::numeric_limits<std::uint32_t>::max()};
    }
}

// Parses all of `text` as digits of the given base, without a sign.
std::optional<std::int64_t> digits(std::string_view text, int base) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    if (error != std::errc() || stop != end || text.front() == '-') {
        return std::nullopt;
    }
    return number;
}

std::optional<std::int64_t> numberFrom(Type type, std::string_view text) {
    const bool negative = type == Type::kInt && text.starts_with('-');
    const std::optional<std::int64_t> magnitude = digits(text.substr(negative ? 1 : 0), 10);
    if (!magnitude) {
        return std::nullopt;
    }
    return negative ? -*magnitude : *magnitude;
}

std::optional<std::string> ipv4From(std::string_view text) {
    std::string address;
    while (address.size() < kIpv4Size) {
        const bool last = address.size() + 1 == kIpv4Size;
        const std::size_t end = last ? text.size() : text.find('.');
        if (end == std::string_view::npos || end > 3) {
            return std::nullopt;
        }
        const std::optional<std::int64_t> part = digits(text.substr(0, end), 10);
        if (!part || *part > 255) {
            return std::nullopt;
        }
        address += static_cast<char>(*part);
        text.remove_prefix(last ? end : end + 1);
    }
    return address;
}

std::string joined(std::string_view bytes, char separator, int base) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        if (!text.empty()) {
            text += separator;
        }
        const auto byte = static_cast<unsigned char>(c);
        text += base == 16 ? std::string{kDigits[byte >> 4U], kDigits[byte & 15U]} : std::to_string(byte);
    }
    return text;
}

int acceptText(Type type, std::size_t longest, std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return HAB_INVALID;
    }
    if (type != Type::kString && std::any_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; })) {
        return HAB_ENCODING;
    }
    return text.size() > longest ? HAB_TOO_LONG : HAB_OK;
}

}  // namespace

const char* typeName(Type type) {
    return kTypeNames[static_cast<std::size_t>(type)];
}

std::optional<Type> typeNamed(std::string_view name) {
    const auto* const found = std::find(kTypeNames.begin(), kTypeNames.end(), name);
    if (found == kTypeNames.end()) {
        return std::nullopt;
    }
    return static_cast<Type>(found - kTypeNames.begin());
}

bool isNumber(Type type) {
    return type == Type::kBool || type == Type::kInt || type == Type::kUint;
}

bool isText(Type type) {
    return type == Type::kAscii || type == Type::kString || type == Type::kEnum;
}

int accept(Type type, std::size_t longest, const Value& value) {
    if (isNumber(type)) {
        const Range range = rangeOf(type);
        return value.number >= range.least && value.number <= range.most ? HAB_OK : HAB_INVALID;
    }
    if (isText(type)) {
        return acceptText(type, longest, value.bytes);
    }
    return value.bytes.size() == (type == Type::kMac ? kMacSize : kIpv4Size) ? HAB_OK : HAB_INVALID;
}

std::optional<Value> valueFrom(Type type, std::string_view text) {
    if (isText(type)) {
        return Value{0, std::string(text)};
    }
    if (type == Type::kBool) {
        if (text != "true" && text != "false") {
            return std::nullopt;
        }
        return Value{text == "true" ? 1 : 0, {}};
    }
    if (isNumber(type)) {
        const std::optional<std::int64_t> number = numberFrom(type, text);
        if (!number || accept(type, 0, {*number, {}}) != HAB_OK) {
            return std::nullopt;
        }
        return Value{*number, {}};
    }
    const std::optional<std::string> address = type == Type::kMac ? macFrom(text) : ipv4From(text);
    if (!address) {
        return std::nullopt;
    }
    return Value{0, *address};
}

std::string textOf(Type type, const Value& value) {
    switch (type) {
        case Type::kBool:
            return value.number != 0 ? "true" : "false";
        case Type::kInt:
        case Type::kUint:
            return std::to_string(value.number);
        case Type::kIpv4:
            return joined(value.bytes, '.', 10);
        case Type::kMac:
            return joined(value.bytes, ':', 16);
        default:
            return value.bytes;
    }
}

std::optional<std::string> macFrom(std::string_view text) {
    if (text.size() != kMacText) {
        return std::nullopt;
    }
    std::string mac;
    for (std::size_t at = 0; at < kMacText; at += 3) {
        const std::optional<std::int64_t> byte = digits(text.substr(at, 2), 16);
        const bool joint = at + 2 == kMacText || text[at + 2] == ':';
        if (!byte || !joint) {
            return std::nullopt;
        }
        mac += static_cast<char>(*byte);
    }
    return mac;
}

std::uint32_t digestOf(const Value& value) {
    // FNV-1a in 64 bits, folded.
    std::uint64_t hash = 0xcbf29ce484222325;
    const auto add = [&hash](std::uint64_t bits) { hash = (hash ^ bits) * 0x100000001b3; };
    add(static_cast<std::uint64_t>(value.number));
    for (const char byte : value.bytes) {
        add(static_cast<unsigned char>(byte));
    }
    return static_cast<std::uint32_t>(hash ^ hash >> 32U);
}

}  // namespace hab

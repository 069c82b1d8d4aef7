// value.h - value types, what a field accepts, and conversion to and from text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace hab {

enum class Type { kAscii, kString, kEnum, kBool, kInt, kUint, kIpv4, kMac };

// A type's name in the schema, and back.
const char* typeName(Type type);
std::optional<Type> typeNamed(std::string_view name);

// bool, int and uint are stored as numbers, texts and addresses as bytes.
bool isNumber(Type type);
bool isText(Type type);

struct Value {
    std::int64_t number = 0;
    std::string bytes;

    bool operator==(const Value&) const = default;
};

// Returns HAB_OK, or the status with which a field of `type` rejects the value. `longest` is the limit for text in
// bytes, without the NUL.
int accept(Type type, std::size_t longest, const Value& value);

// Parses a value of `type`: true or false, decimal numbers, a.b.c.d, AA:BB:CC:DD:EE:FF, or the text itself. Surrounding
// characters are not allowed. Returns `std::nullopt` when it is malformed or out of range.
std::optional<Value> valueFrom(Type type, std::string_view text);
std::string textOf(Type type, const Value& value);

// A hash of the value, the same in every build.
std::uint32_t digestOf(const Value& value);

// Parses six two-digit hexadecimal groups joined by colons into six bytes.
std::optional<std::string> macFrom(std::string_view text);

}  // namespace hab

// value.h - the kinds of values, what a field admits, and values as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace hab {

enum class Type { kAscii, kString, kEnum, kBool, kInt, kUint, kIpv4, kMac };

// The name that the schema gives a type, and back.
const char* typeName(Type type);
std::optional<Type> typeNamed(std::string_view name);

// bool, int and uint are kept as numbers; texts and addresses as bytes.
bool isNumber(Type type);
bool isText(Type type);

struct Value {
    std::int64_t number = 0;
    std::string bytes;

    bool operator==(const Value&) const = default;
};

// HAB_OK, or the status with which a value is refused by a field of `type` and at most `longest` bytes of text.
int accept(Type type, std::size_t longest, const Value& value);

// Reads a value of `type` as a person writes it: true or false, decimal numbers, a.b.c.d, AA:BB:CC:DD:EE:FF, or the
// text itself. Nothing but the value may stand there. Empty when it is malformed or out of range.
std::optional<Value> valueFrom(Type type, std::string_view text);
std::string textOf(Type type, const Value& value);

// Six two-digit hexadecimal groups joined by colons, as six bytes.
std::optional<std::string> macFrom(std::string_view text);

}  // namespace hab

// field.h - the fields that the agent uses. Each is read and written with its own type; its value is text here. Any
// thread.
#pragma once

#include <hablib.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace habconform {

enum class Type { asciiType, stringType, enumType, boolType, intType, uintType, ipv4Type, macType };
const char* nameOf(Type type);

// Whether checks may write a field.
enum class Writes {
    onRequest,  // when the command line names it
    scratch,    // yes: only the agent writes it, a write starts nothing, and a lost value does no harm
    never       // a write starts an operation
};

struct Field {
    const char* table;
    int rows;
    const char* name;
    const char* alias;  // second spelling, or ""
    Type type;
    std::size_t longest;  // bytes of the longest text without the NUL
    const char* words;    // of an enum: the values that the agent writes, separated by blanks
    Writes writes;
};
const std::vector<Field>& agentFields();

struct Place {
    const Field* field;
    int row;
    const char* name;  // the field's name or its alias
};
std::string textOf(const Place& place);  // TABLE.FIELD@ROW
bool operator==(const Place& left, const Place& right);

// Finds the place TABLE.FIELD[@ROW]. Throws std::runtime_error when the agent does not use it or never writes its type,
// or when a write would start an operation.
Place writablePlace(const std::string& address);

// Reads into a buffer of the agent's size. Returns the store's status.
int readValue(hab_session* session, const Place& place, std::string& value);
int writeValue(hab_session* session, const Place& place, const std::string& value);

using TextGetter = int (*)(hab_session*, const char*, int, const char*, char*, std::size_t);
constexpr std::array<TextGetter, 3> kTextGetters{hab_get_ascii, hab_get_string, hab_get_enum};

// Returns a value for `number`. Consecutive numbers have different values. MAC addresses increase with their number.
std::string numbered(const Field& field, unsigned number);

// The values at the limits of the field's type. Empty for a type that the agent does not write.
std::vector<std::string> limitsOf(const Field& field);

}  // namespace habconform

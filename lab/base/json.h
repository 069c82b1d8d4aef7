// json.h - what the lab adds to its JSON library. Pure functions, for any thread; none of them throws.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace lab {

using Json = nlohmann::ordered_json;

// Parses a text that is one JSON value and nothing else but blanks. Returns a discarded value, which is of no type,
// when it is not, and when a value is inside more than 1000 others: printing recurses.
Json parseJson(const std::string& text);

// One line, without blanks. Bytes that are not UTF-8 are replaced by U+FFFD.
std::string printJson(const Json& json);

// The member of that exact name; null when there is none, or `object` is no object.
const Json& member(const Json& object, const char* name);

// The text of a string member, or an empty text.
std::string textOf(const Json& object, const char* name);

// A number that is printed without a fraction when it has none.
Json numberFrom(double value);

}  // namespace lab

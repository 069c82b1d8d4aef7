// json.h - additions to the JSON library. Pure functions for any thread; they never throw.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace lab {

using Json = nlohmann::ordered_json;

// Parses a text that contains exactly one JSON value. Returns a discarded value for any other text, and for values
// nested more than 1000 deep, because printing recurses.
Json parseJson(const std::string& text);

// Prints one line without blanks. Bytes that are not UTF-8 become U+FFFD.
std::string printJson(const Json& json);

// The member with exactly this name; null when it is missing or `object` is not an object.
const Json& member(const Json& object, const char* name);

// The value of a string member; empty when it is missing or not a string.
std::string textOf(const Json& object, const char* name);

// A number that prints without a fraction when it has none.
Json numberFrom(double value);

}  // namespace lab

// json.h - cJSON with an owner. Any thread may use it on trees of its own.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <string>
#include <string_view>

namespace lab {

struct JsonFree {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using JsonTree = std::unique_ptr<cJSON, JsonFree>;

// Parses a text that is one JSON value and nothing else but blanks; null when it is not.
JsonTree parseJson(const std::string& text);

// The tree on one line, without blanks.
std::string printJson(const cJSON* tree);

// The member of that exact name, or null (also when `object` is null).
const cJSON* member(const cJSON* object, const char* name);

// The text of a string member, or an empty text.
std::string textOf(const cJSON* object, const char* name);

// The value of a number member, or `otherwise`.
double numberOf(const cJSON* object, const char* name, double otherwise);

// A text as a JSON string, quotes included.
std::string jsonText(std::string_view text);

}  // namespace lab

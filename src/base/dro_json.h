// dro_json.h - owning pointers for JSON trees and texts. Member names are case-sensitive.
#pragma once

#include <cJSON.h>

#include <memory>

namespace dro {

struct JsonDelete {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Json = std::unique_ptr<cJSON, JsonDelete>;

struct JsonTextFree {
    void operator()(char* text) const { cJSON_free(text); }
};
using JsonText = std::unique_ptr<char, JsonTextFree>;

// Returns the member `name` of `object`, or null. Also null when `object` is null or not an object.
inline const cJSON* json_member(const cJSON* object, const char* name) {
    return cJSON_GetObjectItemCaseSensitive(object, name);
}

// Returns the member's text, or null when it is missing or not a string. Valid as long as the tree.
inline const char* json_text(const cJSON* object, const char* name) {
    return cJSON_GetStringValue(json_member(object, name));
}

}  // namespace dro

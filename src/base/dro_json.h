// dro_json.h - JSON trees and texts that release themselves. Names in messages are compared with their case.
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

// The member `name` of `object`, or null; also null when `object` is null or no object.
inline const cJSON* json_member(const cJSON* object, const char* name) {
    return cJSON_GetObjectItemCaseSensitive(object, name);
}

// The member's text, or null when it is missing or no string. Valid as long as the tree.
inline const char* json_text(const cJSON* object, const char* name) {
    return cJSON_GetStringValue(json_member(object, name));
}

}  // namespace dro

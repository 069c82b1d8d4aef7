#include "json.h"

namespace lab {

JsonTree parseJson(const std::string& text) {
    return JsonTree(cJSON_ParseWithOpts(text.c_str(), nullptr, 1));
}

std::string printJson(const cJSON* tree) {
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(tree), cJSON_free);
    return text ? text.get() : "";
}

const cJSON* member(const cJSON* object, const char* name) {
    return cJSON_GetObjectItemCaseSensitive(object, name);
}

std::string textOf(const cJSON* object, const char* name) {
    const char* text = cJSON_GetStringValue(member(object, name));
    return text != nullptr ? text : "";
}

double numberOf(const cJSON* object, const char* name, double otherwise) {
    const cJSON* item = member(object, name);
    return cJSON_IsNumber(item) != 0 ? item->valuedouble : otherwise;
}

std::string jsonText(std::string_view text) {
    const JsonTree item(cJSON_CreateString(std::string(text).c_str()));
    return printJson(item.get());
}

}  // namespace lab

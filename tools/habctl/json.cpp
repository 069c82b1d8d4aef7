#include <cjson/cJSON.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "commands.h"

namespace habctl {

namespace {

struct DeleteJson {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, DeleteJson>;

struct FreeText {
    void operator()(char* text) const { cJSON_free(text); }
};

// How many bytes the character at the start of `text` has when it is well-formed UTF-8, else 0.
std::size_t characterSize(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return 1;
    }
    const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < size) {
        return 0;
    }
    // The second byte rules out over-long forms, surrogates and what lies beyond U+10FFFF.
    const auto second = static_cast<unsigned char>(text[1]);
    const unsigned least = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const unsigned most = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    for (std::size_t at = 2; at < size; ++at) {
        if ((static_cast<unsigned char>(text[at]) & 0xc0U) != 0x80) {
            return 0;
        }
    }
    return second >= least && second <= most ? size : 0;
}

// JSON holds characters, a string field any bytes: what is not UTF-8 is shown as U+FFFD, and said so.
std::string asUtf8(const OwnedValue& value) {
    std::string_view rest = value.text;
    std::string text;
    bool changed = false;
    while (!rest.empty()) {
        const std::size_t size = characterSize(rest);
        text += size == 0 ? std::string_view("\xEF\xBF\xBD") : rest.substr(0, size);
        changed = changed || size == 0;
        rest.remove_prefix(size == 0 ? 1 : size);
    }
    if (changed) {
        std::fprintf(stderr, "habctl: %s: not UTF-8, other bytes are replaced\n", textOf(value.view()).c_str());
    }
    return text;
}

cJSON* jsonValue(const OwnedValue& value, const std::string& type) {
    if (type == "bool") {
        return cJSON_CreateBool(value.text == "true");
    }
    if (type == "int" || type == "uint") {
        return cJSON_CreateRaw(value.text.c_str());
    }
    return cJSON_CreateString(asUtf8(value).c_str());
}

cJSON* member(cJSON* object, const char* name) {
    cJSON* found = cJSON_GetObjectItemCaseSensitive(object, name);
    return found != nullptr ? found : cJSON_AddObjectToObject(object, name);
}

// A JSON value as the text that the store reads; HAB_WRONG_TYPE when it is of another kind than the field.
int textFrom(const cJSON* json, const std::string& type, std::string& text) {
    const bool number = type == "int" || type == "uint";
    if (cJSON_IsString(json) && !number && type != "bool") {
        text = json->valuestring;
        return HAB_OK;
    }
    if (cJSON_IsBool(json) && type == "bool") {
        text = cJSON_IsTrue(json) ? "true" : "false";
        return HAB_OK;
    }
    if (!cJSON_IsNumber(json) || !number) {
        return HAB_WRONG_TYPE;
    }
    if (std::trunc(json->valuedouble) != json->valuedouble || std::abs(json->valuedouble) > 1e10) {
        return HAB_INVALID;
    }
    text = std::to_string(static_cast<long long>(json->valuedouble));
    return HAB_OK;
}

int addField(const TableInfo& table, int row, const cJSON* json, std::vector<OwnedValue>& values) {
    const FieldInfo* field = table.field(json->string);
    OwnedValue value{table.name, row, json->string, {}};
    const int status = field == nullptr ? HAB_NOSUCH_ITEM : textFrom(json, field->type, value.text);
    if (status != HAB_OK) {
        return complain(status, textOf(value.view()));
    }
    values.push_back(std::move(value));
    return HAB_OK;
}

int addRow(const TableInfo& table, const cJSON* json, std::vector<OwnedValue>& values) {
    const std::string_view key = json->string;
    int row = 0;
    const auto [stop, error] = std::from_chars(key.data(), key.data() + key.size(), row);
    if (error != std::errc() || stop != key.data() + key.size()) {
        return complain(table.field(key) == nullptr ? HAB_NOSUCH_ITEM : HAB_WRONG_TYPE,
                        table.name + "." + std::string(key));
    }
    int status = HAB_OK;
    for (const cJSON* field = json->child; field != nullptr && status == HAB_OK; field = field->next) {
        status = addField(table, row, field, values);
    }
    return status;
}

}  // namespace

std::string jsonFrom(const std::vector<OwnedValue>& values, const std::vector<TableInfo>& tables) {
    const Json root(cJSON_CreateObject());
    for (const OwnedValue& value : values) {
        const TableInfo& table = *tableNamed(tables, value.table);
        cJSON* place = member(root.get(), value.table.c_str());
        if (table.rows > 1) {
            place = member(place, std::to_string(value.row).c_str());
        }
        cJSON_AddItemToObject(place, value.field.c_str(), jsonValue(value, table.field(value.field)->type));
    }
    const std::unique_ptr<char, FreeText> text(cJSON_Print(root.get()));
    return text ? text.get() : "";
}

int valuesFrom(const std::string& json, const std::vector<TableInfo>& tables, std::vector<OwnedValue>& values) {
    const char* stop = nullptr;
    const Json root(cJSON_ParseWithOpts(json.c_str(), &stop, 1));
    if (!cJSON_IsObject(root.get())) {
        return complain(HAB_INVALID, "not a JSON object, at byte " + std::to_string(root ? 0 : stop - json.c_str()));
    }
    int status = HAB_OK;
    for (const cJSON* entry = root->child; entry != nullptr && status == HAB_OK; entry = entry->next) {
        const TableInfo* table = tableNamed(tables, entry->string);
        if (table == nullptr || !cJSON_IsObject(entry)) {
            return complain(table == nullptr ? HAB_NOSUCH_ITEM : HAB_INVALID, entry->string);
        }
        for (const cJSON* item = entry->child; item != nullptr && status == HAB_OK; item = item->next) {
            status = cJSON_IsObject(item) ? addRow(*table, item, values) : addField(*table, 0, item, values);
        }
    }
    return status;
}

}  // namespace habctl

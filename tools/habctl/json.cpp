#include <charconv>
#include <cmath>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>

#include "commands.h"

namespace habctl {

namespace {

using Json = nlohmann::ordered_json;
using BadBytes = Json::error_handler_t;

// A string field may contain any bytes, but JSON contains only characters. Prints a warning when the value has bytes
// that are not UTF-8; they are printed as U+FFFD.
void noteReplacement(const OwnedValue& value) {
    const Json text = value.text;
    if (text.dump(-1, ' ', false, BadBytes::ignore) != text.dump(-1, ' ', false, BadBytes::replace)) {
        std::fprintf(stderr, "habctl: %s: bytes that are not UTF-8 are replaced\n", textOf(value.view()).c_str());
    }
}

Json jsonValue(const OwnedValue& value, const std::string& type) {
    if (type == "bool" || type == "int" || type == "uint") {
        return Json::parse(value.text, nullptr, false);  // stored in the same notation as in JSON
    }
    noteReplacement(value);
    return value.text;
}

// Converts a JSON value to the store's text form. Returns HAB_WRONG_TYPE when its type does not match the field.
int textFrom(const Json& json, const std::string& type, std::string& text) {
    const bool number = type == "int" || type == "uint";
    if (json.is_string() && !number && type != "bool") {
        text = json.get<std::string>();
        return HAB_OK;
    }
    if (json.is_boolean() && type == "bool") {
        text = json.dump();
        return HAB_OK;
    }
    if (!json.is_number() || !number) {
        return HAB_WRONG_TYPE;
    }
    const auto whole = json.get<double>();
    if (std::trunc(whole) != whole || std::abs(whole) > 1e10) {
        return HAB_INVALID;
    }
    text = std::to_string(static_cast<long long>(whole));
    return HAB_OK;
}

int addField(const TableInfo& table, int row, const std::string& name, const Json& json,
             std::vector<OwnedValue>& values) {
    const FieldInfo* field = table.field(name);
    OwnedValue value{table.name, row, name, {}};
    const int status = field == nullptr ? HAB_NOSUCH_ITEM : textFrom(json, field->type, value.text);
    if (status != HAB_OK) {
        return complain(status, textOf(value.view()));
    }
    values.push_back(std::move(value));
    return HAB_OK;
}

int addRow(const TableInfo& table, const std::string& key, const Json& fields, std::vector<OwnedValue>& values) {
    int row = 0;
    const auto [stop, error] = std::from_chars(key.data(), key.data() + key.size(), row);
    if (error != std::errc() || stop != key.data() + key.size()) {
        return complain(table.field(key) == nullptr ? HAB_NOSUCH_ITEM : HAB_WRONG_TYPE, table.name + "." + key);
    }
    int status = HAB_OK;
    for (auto field = fields.begin(); field != fields.end() && status == HAB_OK; ++field) {
        status = addField(table, row, field.key(), *field, values);
    }
    return status;
}

int addTable(const TableInfo& table, const Json& items, std::vector<OwnedValue>& values) {
    int status = HAB_OK;
    for (auto item = items.begin(); item != items.end() && status == HAB_OK; ++item) {
        status = item->is_object() ? addRow(table, item.key(), *item, values)
                                   : addField(table, 0, item.key(), *item, values);
    }
    return status;
}

// Finds a name that appears twice in an object. The parser would silently keep only its last value.
class Names {
 public:
    bool operator()(int /*depth*/, Json::parse_event_t event, const Json& name) {
        if (event == Json::parse_event_t::object_start) {
            open_.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            open_.pop_back();
        } else if (event == Json::parse_event_t::key && !open_.back().insert(name.get<std::string>()).second) {
            twice = name.get<std::string>();
        }
        return true;
    }

    std::string twice;

 private:
    std::vector<std::set<std::string>> open_;
};

int parse(const std::string& text, Json& root) {
    std::size_t byte = 0;
    try {
        Names names;
        root = Json::parse(text, std::ref(names));
        if (!names.twice.empty()) {
            return complain(HAB_INVALID, names.twice + " appears twice");
        }
    } catch (const Json::parse_error& error) {
        byte = error.byte - 1;  // counted from 1
    } catch (const Json::out_of_range& error) {
        return complain(HAB_INVALID, error.what());  // a number that no type can hold
    }
    return root.is_object() ? HAB_OK : complain(HAB_INVALID, "not a JSON object, at byte " + std::to_string(byte));
}

}  // namespace

std::string jsonFrom(const std::vector<OwnedValue>& values, const std::vector<TableInfo>& tables) {
    Json root = Json::object();
    for (const OwnedValue& value : values) {
        const TableInfo& table = *tableNamed(tables, value.table);
        Json& place = root[value.table];
        Json& fields = table.rows > 1 ? place[std::to_string(value.row)] : place;
        fields[value.field] = jsonValue(value, table.field(value.field)->type);
    }
    return root.dump(1, '\t', false, BadBytes::replace);
}

int valuesFrom(const std::string& json, const std::vector<TableInfo>& tables, std::vector<OwnedValue>& values) {
    Json root;
    int status = parse(json, root);
    for (auto entry = root.begin(); entry != root.end() && status == HAB_OK; ++entry) {
        const TableInfo* table = tableNamed(tables, entry.key());
        if (table == nullptr || !entry->is_object()) {
            return complain(table == nullptr ? HAB_NOSUCH_ITEM : HAB_INVALID, entry.key());
        }
        status = addTable(*table, *entry, values);
    }
    return status;
}

}  // namespace habctl

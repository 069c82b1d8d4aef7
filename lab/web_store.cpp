#include "web_store.h"

#include <stdexcept>

namespace lab {

namespace {

struct CloseSession {
    void operator()(hab_session* session) const { hab_destroy(session); }
};
using Session = std::unique_ptr<hab_session, CloseSession>;

Session openSession() {
    Session session(hab_init());
    if (!session) {
        throw std::runtime_error("cannot open the store");
    }
    return session;
}

void describe(const hab_host_field* field, void* context) {
    auto* tables = static_cast<cJSON*>(context);
    cJSON* table = cJSON_GetArrayItem(tables, cJSON_GetArraySize(tables) - 1);
    if (textOf(table, "name") != field->table) {
        cJSON_AddItemToArray(tables, table = cJSON_CreateObject());
        cJSON_AddStringToObject(table, "name", field->table);
        cJSON_AddNumberToObject(table, "rows", field->rows);
        cJSON_AddStringToObject(table, "about", field->table_about);
        cJSON_AddArrayToObject(table, "fields");
    }
    cJSON* one = cJSON_CreateObject();
    cJSON_AddStringToObject(one, "name", field->name);
    cJSON_AddStringToObject(one, "type", field->type);
    cJSON_AddStringToObject(one, "initial", field->initial);
    cJSON_AddStringToObject(one, "about", field->about);
    cJSON_AddItemToArray(cJSON_GetObjectItemCaseSensitive(table, "fields"), one);
}

// `at` is null for a value that was there before anybody looked.
void add(WebFeed& feed, const hab_host_value& value, const std::chrono::system_clock::time_point* at) {
    const JsonTree item(cJSON_CreateObject());
    cJSON_AddStringToObject(item.get(), "table", value.table);
    cJSON_AddNumberToObject(item.get(), "row", value.row);
    cJSON_AddStringToObject(item.get(), "field", value.field);
    cJSON_AddStringToObject(item.get(), "value", value.text);
    if (at != nullptr) {
        cJSON_AddNumberToObject(item.get(), "time", secondsOf(*at));
    }
    feed.addValue(std::string(value.table) + "." + std::to_string(value.row) + "." + value.field,
                  printJson(item.get()));
}

}  // namespace

WebStore::WebStore(WebFeed& feed) : feed_(feed) {
    const JsonTree all = tables();
    std::set<std::string> names;
    const cJSON* table = nullptr;
    cJSON_ArrayForEach(table, all.get()) {
        names.insert(textOf(table, "name"));
    }
    store_.follow(names, [this](std::string_view where, int row, std::string_view name) {
        written(std::string(where), row, std::string(name));
    });
    const std::lock_guard lock(mutex_);
    const int status = hab_host_each_value(
        openSession().get(),
        [](const hab_host_value* value, void* context) { add(*static_cast<WebFeed*>(context), *value, nullptr); },
        &feed_);
    if (status != HAB_OK) {
        throw std::runtime_error(std::string("cannot read the store: ") + hab_error_string(status));
    }
}

JsonTree WebStore::tables() {
    JsonTree all(cJSON_CreateArray());
    hab_host_describe(openSession().get(), describe, all.get());
    return all;
}

void WebStore::written(const std::string& table, int row, const std::string& name) {
    const auto now = std::chrono::system_clock::now();
    const std::lock_guard lock(mutex_);
    const std::string text = store_.get({table.c_str(), name.c_str(), row});
    add(feed_, {table.c_str(), row, name.c_str(), text.c_str()}, &now);
}

}  // namespace lab

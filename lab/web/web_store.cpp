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
    Json& tables = *static_cast<Json*>(context);
    if (tables.empty() || tables.back()["name"] != field->table) {
        tables.push_back(
            {{"name", field->table}, {"rows", field->rows}, {"about", field->table_about}, {"fields", Json::array()}});
    }
    tables.back()["fields"].push_back(
        {{"name", field->name}, {"type", field->type}, {"initial", field->initial}, {"about", field->about}});
}

// `at` is null for an initial value.
void add(WebFeed& feed, const hab_host_value& value, const std::chrono::system_clock::time_point* at) {
    Json item{{"table", value.table}, {"row", value.row}, {"field", value.field}, {"value", value.text}};
    if (at != nullptr) {
        item["time"] = numberFrom(secondsOf(*at));
    }
    feed.addValue(std::string(value.table) + "." + std::to_string(value.row) + "." + value.field, printJson(item));
}

}  // namespace

WebStore::WebStore(WebFeed& feed) : feed_(feed) {
    std::set<std::string> names;
    for (const Json& table : tables()) {
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

Json WebStore::tables() {
    Json all = Json::array();
    hab_host_describe(openSession().get(), describe, &all);
    return all;
}

void WebStore::written(const std::string& table, int row, const std::string& name) {
    const auto now = std::chrono::system_clock::now();
    const std::lock_guard lock(mutex_);
    const std::string text = store_.get({table.c_str(), name.c_str(), row});
    add(feed_, {table.c_str(), row, name.c_str(), text.c_str()}, &now);
}

}  // namespace lab

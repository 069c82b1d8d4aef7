#include "store.h"

#include "input.h"

namespace fuzz {

Store::Store() {
    const auto add = [](const hab_host_field* field, void* context) {
        static_cast<Store*>(context)->defaults_[std::string(field->table) + "." + field->name] = field->initial;
    };
    require(hab_host_describe(session(), add, this) == HAB_OK);
}

std::vector<Held> Store::changed() const {
    std::vector<Held> values;
    const auto add = [](const hab_host_value* value, void* context) {
        static_cast<std::vector<Held>*>(context)->push_back({value->table, value->row, value->field, value->text});
    };
    require(hab_host_each_value(session(), add, &values) == HAB_OK);
    return values;
}

void Store::reset() {
    const std::vector<Held> now = changed();
    if (now == kept_) {
        return;
    }
    std::vector<std::pair<std::string, std::string>> back;
    for (const Held& value : now) {
        back.emplace_back(value.address(), defaults_.at(value.table + "." + value.field));
    }
    for (const Held& value : kept_) {
        back.emplace_back(value.address(), value.text);
    }
    set_all(back);
}

}  // namespace fuzz

// The operations of habhost.h.
#include "habhost.h"

#include <utility>

#include "call.h"
#include "schema_writer.h"
#include "store_maker.h"

namespace hab {

namespace {

hab_host_field described(const Field& field, const std::string& initial) {
    const Table& table = *field.table;
    return {table.name.c_str(),   table.rows,    table.about.c_str(), field.name.c_str(), field.alias.c_str(),
            typeName(field.type), field.longest, initial.c_str(),     field.about.c_str()};
}

// Parses and checks the caller's texts into `change`. Returns a HAB_ status.
int judge(const Session& session, const Place& place, const char* text, Change& change) {
    if (place.table == nullptr || place.field == nullptr || text == nullptr) {
        return HAB_INVALID;
    }
    const Field* field = session.field(place.table, place.row, place.field);
    if (field == nullptr) {
        return HAB_NOSUCH_ITEM;
    }
    std::optional<Value> value = valueFrom(field->type, text);
    if (!value) {
        return HAB_INVALID;
    }
    change = {field, place.row, std::move(*value)};
    return accept(field->type, field->longest, change.value);
}

}  // namespace

}  // namespace hab

int hab_host_store_path(char* buffer, size_t length) {
    return hab::intoBuffer(buffer, length, [](std::string& text) {
        text = hab::storePath();
        return HAB_OK;
    });
}

int hab_host_create(const char* path, bool replace) {
    return path == nullptr ? HAB_INVALID : hab::guarded([&] { return hab::makeStore(path, replace); });
}

int hab_host_upgrade(const char* path) {
    return path == nullptr ? HAB_INVALID : hab::guarded([&] { return hab::upgradeStore(path); });
}

uint32_t hab_host_schema_id(void) {
    return hab::kSchemaId;
}

int hab_host_describe(hab_session* session, void (*visit)(const hab_host_field* field, void* context), void* context) {
    return hab::withSession(session, visit != nullptr, [&](const hab::Session& open) {
        for (const hab::Table& table : open.schema().tables()) {
            for (const hab::Field* field : table.fields) {
                const std::string initial = hab::textOf(field->type, field->initial);
                const hab_host_field description = hab::described(*field, initial);
                visit(&description, context);
            }
        }
        return HAB_OK;
    });
}

int hab_host_get_text(hab_session* session, const char* table, int row, const char* field, char* buffer,
                      size_t length) {
    return hab::intoBuffer(buffer, length, [&](std::string& text) {
        const hab::Place place{table, row, field};
        return hab::withField(session, place, true, [&](hab::Session& open, const hab::Field& found) {
            hab::Value value;
            const int status = open.read(found, row, value);
            text = hab::textOf(found.type, value);
            return status;
        });
    });
}

int hab_host_set_text(hab_session* session, const char* table, int row, const char* field, const char* text) {
    const hab_host_value value{table, row, field, text};
    return hab_host_set_all(session, &value, 1, nullptr);
}

int hab_host_set_all(hab_session* session, const hab_host_value* values, size_t count, size_t* failed) {
    size_t at = 0;
    const int status = hab::withSession(session, values != nullptr, [&](hab::Session& open) {
        std::vector<hab::Change> changes(count);
        for (; at < count; ++at) {
            const hab_host_value& value = values[at];
            const hab::Place place{value.table, value.row, value.field};
            if (const int refused = hab::judge(open, place, value.text, changes[at]); refused != HAB_OK) {
                return refused;
            }
        }
        return open.write(changes);
    });
    if (status != HAB_OK && failed != nullptr) {
        *failed = at;
    }
    return status;
}

int hab_host_each_value(hab_session* session, void (*visit)(const hab_host_value* value, void* context),
                        void* context) {
    return hab::withSession(session, visit != nullptr, [&](hab::Session& open) {
        std::vector<hab::Change> written;
        if (const int status = open.readAll(written); status != HAB_OK) {
            return status;
        }
        for (const auto& [field, row, value] : written) {
            if (value != field->initial) {
                const std::string text = hab::textOf(field->type, value);
                const hab_host_value found{field->table->name.c_str(), row, field->name.c_str(), text.c_str()};
                visit(&found, context);
            }
        }
        return HAB_OK;
    });
}

int hab_host_check(hab_session* session) {
    return hab::withSession(session, true, [](hab::Session& open) { return open.check(); });
}

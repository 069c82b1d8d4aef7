#include "schema.h"

#include <algorithm>

#include "hablib.h"

namespace hab {

std::optional<Value> valueIn(const Statement& row, int column, const Field& field) {
    if (row.isNumber(column) != isNumber(field.type)) {
        return std::nullopt;
    }
    Value value = row.isNumber(column) ? Value{row.number(column), {}} : Value{0, std::string(row.bytes(column))};
    if (accept(field.type, field.longest, value) != HAB_OK) {
        return std::nullopt;
    }
    return value;
}

const Field* Table::field(std::string_view wanted) const {
    const auto found = fieldsByName.find(wanted);
    return found == fieldsByName.end() ? nullptr : found->second;
}

std::pair<std::int64_t, std::int64_t> Table::fieldNumbers() const {
    const auto [first, last] = std::ranges::minmax(fields, {}, [](const Field* field) { return field->id; });
    return {first->id, last->id};
}

Schema::Schema(Connection& connection) {
    readTables(connection);
    readFields(connection);
}

const Table* Schema::table(std::string_view name) const {
    const auto found = tablesByName_.find(name);
    return found == tablesByName_.end() ? nullptr : found->second;
}

const Field* Schema::field(std::int64_t id) const {
    const auto found = fieldsById_.find(id);
    return found == fieldsById_.end() ? nullptr : found->second;
}

bool Schema::keptIn(const Schema& later, std::int64_t lastNumber) const {
    return std::ranges::all_of(fields_, [&](const Field& field) {
        const Field* other = later.field(field.id);
        return other == nullptr ? field.id <= lastNumber
                                : other->name == field.name && other->table->name == field.table->name;
    });
}

void Schema::readTables(Connection& connection) {
    Statement read(connection, "SELECT id, name, rows, about FROM hab_table ORDER BY place");
    const Run run(read);
    while (read.next()) {
        Table& table = tables_.emplace_back(Table{.id = read.number(0),
                                                  .name = std::string(read.bytes(1)),
                                                  .rows = static_cast<int>(read.number(2)),
                                                  .about = std::string(read.bytes(3)),
                                                  .fields = {},
                                                  .fieldsByName = {}});
        tablesByName_.emplace(table.name, &table);
    }
}

void Schema::readFields(Connection& connection) {
    Statement read(connection,
                   "SELECT f.id, t.name, f.name, f.alias, f.type, f.longest, f.initial, f.about FROM hab_field f"
                   " JOIN hab_table t ON t.id = f.table_id ORDER BY f.place");
    const Run run(read);
    while (read.next()) {
        const auto table = tablesByName_.find(read.bytes(1));
        const std::optional<Type> type = typeNamed(read.bytes(4));
        const std::optional<Value> initial = type ? valueFrom(*type, read.bytes(6)) : std::nullopt;
        if (table == tablesByName_.end() || !initial) {
            throw SqliteError(SQLITE_CORRUPT, "its field descriptions are invalid");
        }
        Table& owner = *table->second;
        const Field& field = fields_.emplace_back(Field{.id = read.number(0),
                                                        .table = &owner,
                                                        .index = owner.fields.size(),
                                                        .name = std::string(read.bytes(2)),
                                                        .alias = std::string(read.bytes(3)),
                                                        .type = *type,
                                                        .longest = static_cast<std::size_t>(read.number(5)),
                                                        .initial = *initial,
                                                        .about = std::string(read.bytes(7))});
        owner.fields.push_back(&field);
        owner.fieldsByName.emplace(field.name, &field);
        if (!field.alias.empty()) {
            owner.fieldsByName.emplace(field.alias, &field);
        }
        fieldsById_.emplace(field.id, &field);
    }
}

}  // namespace hab

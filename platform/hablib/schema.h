// schema.h - the tables and fields described in a store file. Built once per process and file and read-only afterwards,
// so any thread may use it. Names are compared byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sqlite.h"
#include "value.h"

namespace hab {

struct Table;

struct Field {
    std::int64_t id;
    const Table* table;
    std::size_t index;  // in its table's fields
    std::string name;
    std::string alias;  // second spelling, or empty
    Type type;
    std::size_t longest;  // bytes of text without the NUL; 0 for other types
    Value initial;        // default, read when no value was written
    std::string about;
};

struct Table {
    std::int64_t id;
    std::string name;
    int rows;  // count; rows are numbered from 0
    std::string about;
    std::vector<const Field*> fields;                                 // in schema order
    std::unordered_map<std::string_view, const Field*> fieldsByName;  // aliases included

    const Field* field(std::string_view wanted) const;
    // The lowest and the highest number of the table's fields. Fields of other tables may have numbers in between after
    // a schema upgrade has added some.
    std::pair<std::int64_t, std::int64_t> fieldNumbers() const;
};

// Returns the value of `field` in a column of the current row, or `std::nullopt` when the cell does not fit the field,
// as in a damaged file.
std::optional<Value> valueIn(const Statement& row, int column, const Field& field);

class Schema {
 public:
    // Reads the schema from a store file. Throws SqliteError.
    explicit Schema(Connection& connection);
    Schema(const Schema&) = delete;
    Schema& operator=(const Schema&) = delete;

    const Table* table(std::string_view name) const;
    const Field* field(std::int64_t id) const;
    const std::deque<Table>& tables() const { return tables_; }

    // True when a file with the schema `later` can be used through this one: no number means a different field there,
    // now or after an upgrade. Field numbers up to `lastNumber` have been used in that file and are never reused.
    bool keptIn(const Schema& later, std::int64_t lastNumber) const;

 private:
    void readTables(Connection& connection);
    void readFields(Connection& connection);

    // Deques keep element addresses stable for the maps and fields that point to them.
    std::deque<Table> tables_;
    std::deque<Field> fields_;
    std::unordered_map<std::string_view, Table*> tablesByName_;
    std::unordered_map<std::int64_t, const Field*> fieldsById_;
};

}  // namespace hab

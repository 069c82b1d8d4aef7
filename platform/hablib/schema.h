// schema.h - what a store file says about its tables and fields. Built once per process and file, read-only afterwards,
// so any thread may use it. Names are compared byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
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
    std::string alias;  // a second spelling, or empty
    Type type;
    std::size_t longest;  // bytes of text without the NUL; 0 for other types
    Value initial;        // what a value never written reads as
    std::string about;
};

struct Table {
    std::int64_t id;
    std::string name;
    int rows;  // rows count from 0
    std::string about;
    std::vector<const Field*> fields;                                 // in the schema's order
    std::unordered_map<std::string_view, const Field*> fieldsByName;  // aliases included

    const Field* field(std::string_view wanted) const;
};

// The value of `field` as it stands in a column of the current row; none when the cell does not hold what the field
// admits, as in a damaged file.
std::optional<Value> valueIn(const Statement& row, int column, const Field& field);

class Schema {
 public:
    // Reads it from a store file. Throws SqliteError.
    explicit Schema(Connection& connection);
    Schema(const Schema&) = delete;
    Schema& operator=(const Schema&) = delete;

    const Table* table(std::string_view name) const;
    const Field* field(std::int64_t id) const;
    const std::deque<Table>& tables() const { return tables_; }

 private:
    void readTables(Connection& connection);
    void readFields(Connection& connection);

    // Deques keep their elements in place, so that the maps and the fields may point at them.
    std::deque<Table> tables_;
    std::deque<Field> fields_;
    std::unordered_map<std::string_view, Table*> tablesByName_;
    std::unordered_map<std::int64_t, const Field*> fieldsById_;
};

}  // namespace hab

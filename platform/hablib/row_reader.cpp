#include "row_reader.h"

namespace hab {

RowReader::RowReader(const Connection& connection, const Schema& schema)
    : connection_(connection),
      schema_(schema),
      statement_(connection, "SELECT field, value FROM hab_value WHERE row = ?1 AND field BETWEEN ?2 AND ?3") {}

const std::optional<Value>& RowReader::read(const Field& field, int row) {
    // Read before the row is fetched: a commit in between makes the next read fetch again.
    const std::optional<CommitMark> mark = lastCommit(connection_.get());
    if (!mark || mark != mark_) {
        rows_.clear();
        mark_ = mark;
    }
    Row& last = rows_[field.table];
    if (last.number != row) {
        last = fetch(*field.table, row);
    }
    return last.values[field.index];
}

RowReader::Row RowReader::fetch(const Table& table, int row) {
    Row fetched{row, {}};
    fetched.values.reserve(table.fields.size());
    for (const Field* field : table.fields) {
        fetched.values.emplace_back(field->initial);
    }
    const auto [first, last] = table.fieldNumbers();
    const Run run(statement_);
    statement_.bind(1, row).bind(2, first).bind(3, last);
    while (statement_.next()) {
        const Field* field = schema_.field(statement_.number(0));
        if (field != nullptr && field->table == &table) {
            fetched.values[field->index] = valueIn(statement_, 1, *field);
        }
    }
    schemaChanged_ = schemaChanged_ || statement_.schemaChanged();
    return fetched;
}

}  // namespace hab

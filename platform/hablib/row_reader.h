// row_reader.h - reads values one table row at a time. Callers read single values, mostly from the same few rows.
// SQLite's file locks around each statement cost more than reading a whole row. One thread at a time.
#pragma once

#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "commit_mark.h"
#include "schema.h"
#include "sqlite.h"

namespace hab {

class RowReader {
 public:
    // `connection` and `schema` must outlive the reader. Throws SqliteError.
    RowReader(const Connection& connection, const Schema& schema);

    // Returns the value as of the last commit, or the field's default when it was never written. `std::nullopt` when
    // the stored value does not fit the field. Valid until the next read. Throws SqliteError.
    const std::optional<Value>& read(const Field& field, int row);

    // Drops the cached rows.
    void forget() { rows_.clear(); }
    // True once after a read that found a changed database schema: the file was upgraded or another copy was restored.
    bool schemaChanged() { return std::exchange(schemaChanged_, false); }

 private:
    struct Row {
        int number = -1;
        std::vector<std::optional<Value>> values;  // by Field::index
    };

    Row fetch(const Table& table, int row);

    const Connection& connection_;
    const Schema& schema_;
    Statement statement_;
    // Row cache: the last row read from each table, valid while mark_ is the store's last commit.
    std::unordered_map<const Table*, Row> rows_;
    std::optional<CommitMark> mark_;
    bool schemaChanged_ = false;
};

}  // namespace hab

// row_reader.h - reads values a row of a table at a time. Callers ask for one value after the other, mostly of the same
// few rows; SQLite's file locks around each statement cost more than all the values of a row. One thread at a time.
#pragma once

#include <optional>
#include <unordered_map>
#include <vector>

#include "commit_mark.h"
#include "schema.h"
#include "sqlite.h"

namespace hab {

class RowReader {
 public:
    // Throws SqliteError. Both must outlive the reader.
    RowReader(const Connection& connection, const Schema& schema);

    // The value as of the last commit, the field's default when it was never written; nothing when what the store holds
    // does not fit the field. Valid until the next read. Throws SqliteError.
    const std::optional<Value>& read(const Field& field, int row);

 private:
    struct Row {
        int number = -1;
        std::vector<std::optional<Value>> values;  // by the fields' indices
    };

    Row fetch(const Table& table, int row);

    const Connection& connection_;
    const Schema& schema_;
    Statement statement_;
    // The row of each table that was read last. They stand while the mark does: no commit has come after them.
    std::unordered_map<const Table*, Row> rows_;
    std::optional<CommitMark> mark_;
};

}  // namespace hab

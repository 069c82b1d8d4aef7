// journal.h - the store's journal of changes, and a subscriber's way through it.
//
// Each write appends an entry: its place, counted up from 1, the field, the row, and a stamp. The upper half of a stamp
// is random, the lower half is the digest of the written value. A subscriber that finds its last entry under the same
// stamp continues there. Otherwise the journal was trimmed past it, or another copy of the store was restored over the
// file; the numbers alone would not show the latter. It then compares the values with those it knows.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "schema.h"
#include "sqlite.h"
#include "store.h"

namespace hab {

std::int64_t newStamp(const Value& value);

// The last write to a value, as a subscriber knows it. Place 0 when it was never written.
struct ValueState {
    std::int64_t place = 0;
    std::uint32_t digest = 0;
};

struct Notice {
    const Field* field;
    int row;
};

// The changes of the subscribed tables that a session has not received yet.
class Changes {
 public:
    // Starts at the current end of the journal. `store` and `connection` must outlive the object. Throws SqliteError.
    Changes(Store& store, Connection& connection);

    // Includes the changes of `table` committed from now on. Reads the store through the caller's `connection`.
    // Repeated calls have no effect. Any thread. Throws SqliteError.
    void add(const Table& table, Connection& connection);
    bool has(const Table& table);

    enum class Fetch { kAll, kSome, kLost };
    // Replaces `notices` by the next changes in commit order; kSome when there are more. kLost when a restored copy has
    // a different schema. Delivery thread only. An exception (SqliteError, std::bad_alloc) loses no change.
    Fetch fetch(std::vector<Notice>& notices);

 private:
    struct Entry {
        std::int64_t place;
        std::int64_t stamp;

        bool operator==(const Entry&) const = default;
    };
    struct Change {
        Entry entry;
        const Field* field;
        int row;
    };

    Entry lastEntry();
    Fetch compare(std::vector<Notice>& notices);

    Store& store_;
    Connection& connection_;
    Statement readJournal_;
    Entry last_;  // later entries are not fetched yet

    std::mutex mutex_;  // held while a table's values are read, so that no change passes in between
    std::map<const Table*, std::vector<ValueState>> tables_;  // by row and field index
};

}  // namespace hab

#include "journal.h"

#include <algorithm>

namespace hab {

namespace {

// Changes fetched at a time. The read transaction ends before a handler runs.
constexpr std::size_t kBatch = 256;

std::size_t indexOf(const Field& field, int row) {
    return static_cast<std::size_t>(row) * field.table->fields.size() + field.index;
}

std::uint32_t digestIn(std::int64_t stamp) {
    return static_cast<std::uint32_t>(stamp);
}

std::vector<ValueState> readStates(const Connection& connection, const Schema& schema, const Table& table) {
    std::vector<ValueState> states(static_cast<std::size_t>(table.rows) * table.fields.size());
    for (std::size_t i = 0; i < states.size(); ++i) {
        states[i].digest = digestOf(table.fields[i % table.fields.size()]->initial);
    }
    Statement read(connection, "SELECT field, value, seq FROM hab_value WHERE row = ?1 AND field BETWEEN ?2 AND ?3");
    const auto [first, last] = table.fieldNumbers();
    for (int row = 0; row < table.rows; ++row) {
        const Run run(read);
        read.bind(1, row).bind(2, first).bind(3, last);
        while (read.next()) {
            const Field* field = schema.field(read.number(0));
            if (field != nullptr && field->table == &table) {
                const std::optional<Value> value = valueIn(read, 1, *field);
                states[indexOf(*field, row)] = {read.number(2), value ? digestOf(*value) : 0};
            }
        }
    }
    return states;
}

}  // namespace

std::int64_t newStamp(const Value& value) {
    std::uint32_t random = 0;
    sqlite3_randomness(sizeof random, &random);
    return static_cast<std::int64_t>(std::uint64_t{random} << 32U | digestOf(value));
}

Changes::Changes(Store& store, Connection& connection)
    : store_(store),
      connection_(connection),
      readJournal_(connection, "SELECT seq, stamp, field, row FROM hab_journal WHERE seq >= ?1 ORDER BY seq LIMIT ?2"),
      last_(lastEntry()) {}

Changes::Entry Changes::lastEntry() {
    Statement read(connection_, "SELECT seq, stamp FROM hab_journal ORDER BY seq DESC LIMIT 1");
    return read.next() ? Entry{read.number(0), read.number(1)} : Entry{0, 0};
}

bool Changes::has(const Table& table) {
    const std::lock_guard lock(mutex_);
    return tables_.contains(&table);
}

void Changes::add(const Table& table, Connection& connection) {
    const std::lock_guard lock(mutex_);
    if (!tables_.contains(&table)) {
        tables_.emplace(&table, readStates(connection, store_.schema(), table));
    }
}

Changes::Fetch Changes::fetch(std::vector<Notice>& notices) {
    notices.clear();
    const Run run(readJournal_);
    readJournal_.bind(1, last_.place).bind(2, static_cast<std::int64_t>(kBatch) + 1);
    if (!readJournal_.next() || Entry{readJournal_.number(0), readJournal_.number(1)} != last_) {
        return compare(notices);
    }
    std::vector<Change> changes;
    while (readJournal_.next()) {
        changes.push_back({{readJournal_.number(0), readJournal_.number(1)},
                           store_.schema().field(readJournal_.number(2)),
                           static_cast<int>(readJournal_.number(3))});
    }
    notices.reserve(changes.size());
    const std::lock_guard lock(mutex_);
    for (const auto& [entry, field, row] : changes) {
        last_ = entry;
        const auto table = field == nullptr ? tables_.end() : tables_.find(field->table);
        if (table == tables_.end() || row < 0 || row >= field->table->rows) {
            continue;
        }
        ValueState& known = table->second[indexOf(*field, row)];
        if (entry.place > known.place) {  // otherwise written before the table was added
            known = {entry.place, digestIn(entry.stamp)};
            notices.push_back({field, row});
        }
    }
    return changes.size() < kBatch ? Fetch::kAll : Fetch::kSome;
}

// Finds the values that differ from the known ones or were written at a later place, and the value written last: after
// a restore, the write that woke this session may have the known value and a low place. Continues at the end of the
// journal. Runs in the caller's read transaction.
Changes::Fetch Changes::compare(std::vector<Notice>& notices) {
    if (!store_.fits(connection_)) {
        return Fetch::kLost;
    }
    const Entry end = lastEntry();
    std::vector<std::pair<std::int64_t, Notice>> found;  // by place
    const std::lock_guard lock(mutex_);
    auto present = tables_;
    for (auto& [table, states] : present) {
        const std::vector<ValueState>& known = tables_.at(table);
        states = readStates(connection_, store_.schema(), *table);
        for (std::size_t i = 0; i < states.size(); ++i) {
            const ValueState& now = states[i];
            const bool last = now.place == end.place && now.place != 0;
            if (now.digest != known[i].digest || now.place > known[i].place || last) {
                const std::size_t fields = table->fields.size();
                found.push_back({now.place, {table->fields[i % fields], static_cast<int>(i / fields)}});
            }
        }
    }
    std::ranges::stable_sort(found, {}, [](const auto& change) { return change.first; });
    for (const auto& change : found) {
        notices.push_back(change.second);
    }
    tables_.swap(present);
    last_ = end;
    return Fetch::kAll;
}

}  // namespace hab

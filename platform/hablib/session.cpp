#include "session.h"

#include <bit>
#include <cerrno>
#include <cstdint>
#include <set>
#include <shared_mutex>
#include <string>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace hab {

namespace {

// A session further behind than kJournalLength receives one notice per value written since. The journal is trimmed
// every kJournalCut changes. A trim wakes all sessions, so changes to unrelated tables do not put a session behind.
constexpr std::int64_t kJournalLength = 100'000;
constexpr std::int64_t kJournalCut = 500;

class Pass {
 public:
    Pass(Gate& gate, Clock::time_point deadline) : gate_(gate), through_(gate.enter(deadline)) {}
    ~Pass() {
        if (through_) {
            gate_.leave();
        }
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

    explicit operator bool() const { return through_; }

 private:
    Gate& gate_;
    bool through_;
};

struct Sessions {
    std::shared_mutex mutex;
    std::unordered_map<const hab_session*, std::shared_ptr<Session>> open;
    std::uintptr_t last = 0;
};

Sessions& sessions() {
    static auto* all = std::make_unique<Sessions>().release();  // never destroyed: other threads may use it at exit
    return *all;
}

void bindValue(Statement& statement, int place, Type type, const Value& value) {
    if (isNumber(type)) {
        statement.bind(place, value.number);
    } else if (isText(type)) {
        statement.bindText(place, value.bytes);
    } else {
        statement.bindBytes(place, value.bytes);
    }
}

}  // namespace

bool Gate::enter(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    if (!left_.wait_until(lock, deadline, [this] { return !taken_; })) {
        return false;
    }
    taken_ = true;
    return true;
}

void Gate::leave() {
    {
        const std::lock_guard lock(mutex_);
        taken_ = false;
    }
    left_.notify_one();
}

Session::Session(std::shared_ptr<Store> store, std::unique_ptr<Connection> connection)
    : store_(std::move(store)),
      connection_(std::move(connection)),
      reader_(*connection_, store_->schema()),
      writeJournal_(*connection_, "INSERT INTO hab_journal(field, row, stamp) VALUES(?1, ?2, ?3)"),
      writeValue_(*connection_, "INSERT OR REPLACE INTO hab_value(field, row, value, seq) VALUES(?1, ?2, ?3, ?4)"),
      rewrites_(store_->watch().rewrites()) {}

template <class Operation>
int Session::exclusively(Episode& kind, Operation operation) {
    const Clock::time_point deadline = Clock::now() + kPatience;
    const Pass pass(gate_, deadline);
    if (!pass) {
        return HAB_TIMEOUT;
    }
    connection_->waitUntil(deadline);
    try {
        const int status = operation();
        if (status == HAB_OK) {
            kind.succeeded();
        }
        return status;
    } catch (const SqliteError& error) {
        const int status = statusOf(error.code());
        if (error.damage()) {
            store_->damaged(error.what());
        } else if (status == HAB_ERROR) {
            kind.failed(error.what());
        }
        return status;
    } catch (const std::exception& error) {
        kind.failed(error.what());
        return HAB_ERROR;
    }
}

template <class Operation>
int Session::whileThere(Episode& kind, Operation operation) {
    return exclusively(kind, [&] {
        if (store_->lostLately()) {
            return static_cast<int>(HAB_ERROR);
        }
        forgetRewritten();
        return operation();
    });
}

void Session::forgetRewritten() {
    if (const std::uint64_t rewrites = store_->watch().rewrites(); rewrites != rewrites_) {
        rewrites_ = rewrites;
        maybeRestored_ = true;
        reader_.forget();
        connection_->forgetPages();
    }
}

const Field* Session::field(std::string_view table, int row, std::string_view name) const {
    const Table* found = schema().table(table);
    return found == nullptr || row < 0 || row >= found->rows ? nullptr : found->field(name);
}

int Session::read(const Field& field, int row, Value& value) {
    return whileThere(store_->reads(), [&] {
        const std::optional<Value>& found = reader_.read(field, row);
        if (reader_.schemaChanged() && !store_->fits(*connection_)) {
            return HAB_ERROR;
        }
        if (!found) {
            store_->damaged("it holds a value that does not fit its field");
            return HAB_ERROR;
        }
        value = *found;
        return HAB_OK;
    });
}

int Session::write(std::span<const Change> changes) {
    return exclusively(store_->writes(), [&] {
        store_->watch().look();
        forgetRewritten();
        const int status = commit(changes);
        connection_->tidy();
        return status;
    });
}

int Session::commit(std::span<const Change> changes) {
    Transaction transaction(*connection_);
    // Checked under the write lock, so a replacement during the wait for the lock is detected.
    if (store_->lost()) {
        return HAB_ERROR;
    }
    std::set<std::int64_t> tables;
    for (const Change& change : changes) {
        tables.insert(change.field->table->id);
        if (record(change)) {
            tables.insert(kBellForAll);
        }
    }
    if (writeJournal_.schemaChanged()) {  // also when a copy was restored through SQLite
        maybeRestored_ = true;
        if (!store_->fits(*connection_)) {
            return HAB_ERROR;
        }
    }
    if (maybeRestored_) {
        tables.insert(kBellForAll);
    }
    // The bells ring when they are closed at the end of this function, or by the kernel if the process is killed first.
    std::vector<FileDescriptor> bells;
    for (const std::int64_t table : tables) {
        if (!bells.emplace_back(holdBell(store_->path(), table))) {
            throw std::system_error(errno, std::generic_category(),
                                    "its bell file cannot be opened, so no session would notice a write");
        }
    }
    transaction.commit();
    maybeRestored_ = false;
    return HAB_OK;
}

bool Session::record(const Change& change) {
    writeJournal_.bind(1, change.field->id).bind(2, change.row).bind(3, newStamp(change.value)).finish();
    const std::int64_t place = connection_->lastRowid();
    writeValue_.bind(1, change.field->id).bind(2, change.row).bind(4, place);
    bindValue(writeValue_, 3, change.field->type, change.value);
    writeValue_.finish();
    if (place % kJournalCut != 0) {
        return false;
    }
    Statement cut(*connection_, "DELETE FROM hab_journal WHERE seq <= ?1");
    cut.bind(1, place - kJournalLength).finish();
    return true;
}

int Session::readAll(std::vector<Change>& values) {
    return whileThere(store_->reads(), [&] {
        if (!store_->fits(*connection_)) {
            return HAB_ERROR;
        }
        Statement read(*connection_,
                       "SELECT v.field, v.row, v.value FROM hab_value v JOIN hab_field f ON f.id = v.field"
                       " JOIN hab_table t ON t.id = f.table_id ORDER BY t.place, v.row, f.place");
        while (read.next()) {
            const Field* field = schema().field(read.number(0));
            if (std::optional<Value> value = field == nullptr ? std::nullopt : valueIn(read, 2, *field)) {
                values.push_back({field, static_cast<int>(read.number(1)), *std::move(value)});
            }
        }
        return HAB_OK;
    });
}

int Session::subscribe(const Table& table) {
    return whileThere(store_->subscriptions(), [&] {
        delivery()->listen(table, *connection_);
        return HAB_OK;
    });
}

int Session::setHandler(hab_notice_handler handler, void* context) {
    return whileThere(store_->subscriptions(), [&] {
        delivery()->setHandler(handler, context);
        return HAB_OK;
    });
}

int Session::check() {
    return whileThere(store_->reads(), [] { return HAB_OK; });
}

std::shared_ptr<Delivery> Session::delivery() {
    const std::lock_guard lock(deliveryMutex_);
    if (!delivery_) {
        delivery_ = Delivery::start(store_);
    }
    return delivery_;
}

void Session::close() {
    const std::lock_guard lock(deliveryMutex_);
    if (delivery_) {
        delivery_->stop();
    }
}

hab_session* registerSession(std::shared_ptr<Session> session) {
    Sessions& all = sessions();
    const std::unique_lock lock(all.mutex);
    // In steps of 16, so a slightly wrong handle never matches another one. Never null.
    auto* const handle = std::bit_cast<hab_session*>(all.last += 16);
    all.open.emplace(handle, std::move(session));
    return handle;
}

std::shared_ptr<Session> findSession(const hab_session* handle) {
    Sessions& all = sessions();
    const std::shared_lock lock(all.mutex);
    const auto found = all.open.find(handle);
    return found == all.open.end() ? nullptr : found->second;
}

std::shared_ptr<Session> takeSession(const hab_session* handle) {
    Sessions& all = sessions();
    const std::unique_lock lock(all.mutex);
    const auto found = all.open.find(handle);
    if (found == all.open.end()) {
        return nullptr;
    }
    std::shared_ptr<Session> session = std::move(found->second);
    all.open.erase(found);
    return session;
}

}  // namespace hab

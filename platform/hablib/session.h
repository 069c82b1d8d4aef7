// session.h - one open session with typed reads and writes, and the table that maps handles to sessions. Any thread may
// call.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include "delivery.h"
#include "hablib.h"
#include "row_reader.h"
#include "store.h"

namespace hab {

// A lock with a deadline.
class Gate {
 public:
    bool enter(Clock::time_point deadline);
    void leave();

 private:
    std::mutex mutex_;
    std::condition_variable left_;
    bool taken_ = false;
};

struct Change {
    const Field* field;
    int row;
    Value value;
};

// All operations return a HAB_ status. Each waits at most kPatience in total for other threads and processes.
class Session {
 public:
    Session(std::shared_ptr<Store> store, std::unique_ptr<Connection> connection);
    ~Session() { close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const Schema& schema() const { return store_->schema(); }

    // Returns the named field when the table has that row, else null.
    const Field* field(std::string_view table, int row, std::string_view name) const;

    // Reads the value, or the field's default when it was never written.
    int read(const Field& field, int row, Value& value);
    // Writes all changes or none. The values must fit their fields. Each change sends a notice.
    int write(std::span<const Change> changes);
    // Appends every written value, ordered by table, row and field.
    int readAll(std::vector<Change>& values);

    int subscribe(const Table& table);
    int setHandler(hab_notice_handler handler, void* context);
    // Returns HAB_ERROR when the path no longer leads to the session's store file.
    int check();
    // Stops the notices. Operations already running on other threads complete.
    void close();

 private:
    // Runs an operation with exclusive use of the connection. Exceptions become a status and are reported.
    template <class Operation>
    int exclusively(Episode& kind, Operation operation);
    // As exclusively(), after a check that the store file is still in place.
    template <class Operation>
    int whileThere(Episode& kind, Operation operation);
    // Drops what was read from the file before a program wrote it without SQLite's knowledge.
    void forgetRewritten();
    int commit(std::span<const Change> changes);
    // Returns true when the journal was trimmed.
    bool record(const Change& change);
    std::shared_ptr<Delivery> delivery();

    const std::shared_ptr<Store> store_;
    const std::unique_ptr<Connection> connection_;
    Gate gate_;  // guards the connection and its statements
    RowReader reader_;
    Statement writeJournal_;
    Statement writeValue_;
    std::uint64_t rewrites_;  // of the file, known to this session
    // True when a copy of the store may have been restored since this session's last write. The next write then wakes
    // every subscriber, since each has to compare its own tables.
    bool maybeRestored_ = true;

    std::mutex deliveryMutex_;
    std::shared_ptr<Delivery> delivery_;  // created on first use
};

// Handles are identifiers, not addresses. A destroyed handle is recognised and never reused.
hab_session* registerSession(std::shared_ptr<Session> session);
std::shared_ptr<Session> findSession(const hab_session* handle);
// Removes the session. Returns null when there is none with this handle.
std::shared_ptr<Session> takeSession(const hab_session* handle);

}  // namespace hab

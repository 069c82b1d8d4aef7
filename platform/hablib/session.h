// session.h - one open session: typed values in and out of the store, and the table of sessions behind the handles.
// Any thread may call.
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

// Lets one thread at a time through, and gives up at a deadline.
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

// All operations answer a HAB_ status; they wait at most kPatience for other threads and processes together.
class Session {
 public:
    Session(std::shared_ptr<Store> store, std::unique_ptr<Connection> connection);
    ~Session() { close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const Schema& schema() const { return store_->schema(); }

    // The field of that name, when the table has the row. Null otherwise.
    const Field* field(std::string_view table, int row, std::string_view name) const;

    // Gives the value, or the field's default when it was never written.
    int read(const Field& field, int row, Value& value);
    // Writes all changes, whose values their fields admit, or none. Each sends its notice.
    int write(std::span<const Change> changes);
    // Gives every value that was ever written, by table, row and field.
    int readAll(std::vector<Change>& values);

    int subscribe(const Table& table);
    int setHandler(hab_notice_handler handler, void* context);
    // HAB_ERROR once the store's file is not what the path names.
    int check();
    // Ends the notices. Operations that other threads have begun run to their end.
    void close();

 private:
    // Runs an operation on the connection when no other thread does; what it throws becomes a status.
    template <class Operation>
    int exclusively(Operation operation);
    // The same, once the store's file was seen in its place.
    template <class Operation>
    int whileThere(Operation operation);
    int commit(std::span<const Change> changes);
    // True when the journal was cut.
    bool record(const Change& change);
    std::shared_ptr<Delivery> delivery();

    const std::shared_ptr<Store> store_;
    const std::unique_ptr<Connection> connection_;
    Gate gate_;  // around the connection and its statements
    RowReader reader_;
    Statement writeJournal_;
    Statement writeValue_;

    std::mutex deliveryMutex_;
    std::shared_ptr<Delivery> delivery_;  // started when it is first needed
};

// Handles are names, not addresses: one that was destroyed is known as such and never used again.
hab_session* registerSession(std::shared_ptr<Session> session);
std::shared_ptr<Session> findSession(const hab_session* handle);
// Null when there is no such session (any more).
std::shared_ptr<Session> takeSession(const hab_session* handle);

}  // namespace hab

// delivery.h - delivers the change notices of one session on its own thread. Any thread may call. The thread keeps the
// object alive until it exits, so a handler may still run after its session is closed.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "bell.h"
#include "hablib.h"
#include "store.h"

namespace hab {

class Delivery {
 public:
    // Starts the thread. Notices begin after the last commit before the call. Throws SqliteError or std::system_error.
    static std::shared_ptr<Delivery> start(std::shared_ptr<Store> store);

    // Starts at the current end of the journal. Throws SqliteError or std::system_error.
    Delivery(std::shared_ptr<Store> store, std::unique_ptr<Connection> connection);

    // Delivers changes of `table` committed after journal position `from`. Repeated calls have no effect. Throws
    // std::system_error.
    void listen(const Table& table, std::int64_t from);
    void setHandler(hab_notice_handler handler, void* context);

    // Stops the delivery. Does not wait for a running handler.
    void stop();

 private:
    struct Notice {
        std::int64_t place;
        std::int64_t field;
        int row;
    };
    enum class Look { kDone, kLocked, kFailed, kEnd };

    void run();
    Look look();
    Look fetch(std::vector<Notice>& notices);
    void fetchMissed(std::vector<Notice>& notices);
    bool deliver(const Notice& notice);
    bool wait(Look last);

    const std::shared_ptr<Store> store_;
    const std::unique_ptr<Connection> connection_;
    BellWatch watch_;
    FileDescriptor wake_;
    Statement readJournal_;
    Statement readValues_;
    std::int64_t position_;  // in the journal; later entries are not delivered yet

    std::mutex mutex_;
    bool stopped_ = false;
    hab_notice_handler handler_ = nullptr;
    void* context_ = nullptr;
    std::unordered_map<const Table*, std::int64_t> tables_;  // the journal position where each subscription starts
};

// Returns the journal position of the last commit, or 0 when there is none. Throws SqliteError.
std::int64_t lastPlace(Connection& connection);

}  // namespace hab

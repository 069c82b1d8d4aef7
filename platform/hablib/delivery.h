// delivery.h - the change notices of one session, on a thread of their own. Any thread may call; the thread keeps the
// object alive until it ends, so a handler may block while its session is long gone.
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
    // Starts the thread; notices count from the last commit before the call. Throws SqliteError or std::system_error.
    static std::shared_ptr<Delivery> start(std::shared_ptr<Store> store);

    // `position` is the last commit's place in the journal, before this session.
    Delivery(std::shared_ptr<Store> store, std::unique_ptr<Connection> connection);

    // Delivers the changes of `table` that are committed after journal place `from`. A second call changes nothing.
    // Throws std::system_error.
    void listen(const Table& table, std::int64_t from);
    void setHandler(hab_notice_handler handler, void* context);

    // Ends the delivery without waiting for a handler that is running.
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
    std::int64_t position_;  // in the journal; what comes after it is still to be delivered

    std::mutex mutex_;
    bool stopped_ = false;
    hab_notice_handler handler_ = nullptr;
    void* context_ = nullptr;
    std::unordered_map<const Table*, std::int64_t> tables_;  // with the place from which each is listened to
};

// The place of the last commit in the journal; 0 when there was none. Throws SqliteError.
std::int64_t lastPlace(Connection& connection);

}  // namespace hab

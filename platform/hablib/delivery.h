// delivery.h - delivers the change notices of one session on its own thread. Any thread may call. The thread keeps the
// object alive until it exits, so a handler may still run after its session is closed.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "bell.h"
#include "hablib.h"
#include "journal.h"
#include "report.h"
#include "store.h"

namespace hab {

class Delivery {
 public:
    // Starts the thread. Notices begin after the last commit before the call. Throws SqliteError or std::system_error.
    static std::shared_ptr<Delivery> start(std::shared_ptr<Store> store);

    // Throws SqliteError or std::system_error.
    Delivery(std::shared_ptr<Store> store, std::unique_ptr<Connection> connection);

    // Delivers changes of `table` committed from now on; reads the store through the caller's `connection`. Repeated
    // calls have no effect. Throws SqliteError or std::system_error.
    void listen(const Table& table, Connection& connection);
    void setHandler(hab_notice_handler handler, void* context);

    // Stops the delivery. Does not wait for a running handler.
    void stop();

 private:
    void run();
    bool look();
    bool deliver(const Notice& notice);
    bool await(std::chrono::milliseconds pause);

    const std::shared_ptr<Store> store_;
    const std::unique_ptr<Connection> connection_;
    BellWatch watch_;
    FileDescriptor wake_;
    Changes changes_;
    Episode failures_;

    std::mutex mutex_;
    bool stopped_ = false;
    hab_notice_handler handler_ = nullptr;
    void* context_ = nullptr;
};

}  // namespace hab

#include "delivery.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

namespace hab {

namespace {

// Pauses after a failure: each twice as long as the one before.
constexpr std::chrono::milliseconds kFirstPause{10};
constexpr std::chrono::milliseconds kLongestPause{2000};

// Blocks all signals for the scope. Threads started in it inherit the mask, so signals reach only the program's
// threads.
class SignalsBlocked {
 public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
    sigset_t before_{};
};

// Starts `body` on a detached thread. Throws std::system_error.
void startThread(void* (*body)(void*), void* argument) {
    const SignalsBlocked blocked;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, DRO_THREAD_STACK);
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "no thread for change notices");
    }
}

}  // namespace

std::shared_ptr<Delivery> Delivery::start(std::shared_ptr<Store> store) {
    std::unique_ptr<Connection> connection = store->connect();
    if (!connection) {
        throw SqliteError(SQLITE_CANTOPEN, "the store is gone");
    }
    auto delivery = std::make_shared<Delivery>(std::move(store), std::move(connection));
    using Owner = std::unique_ptr<std::shared_ptr<Delivery>>;
    Owner owner = std::make_unique<std::shared_ptr<Delivery>>(delivery);
    startThread(
        [](void* argument) -> void* {
            const Owner self(static_cast<std::shared_ptr<Delivery>*>(argument));
            pthread_setname_np(pthread_self(), "hab-notices");
            (*self)->run();
            return nullptr;
        },
        owner.get());
    static_cast<void>(owner.release());  // now owned by the thread
    return delivery;
}

Delivery::Delivery(std::shared_ptr<Store> store, std::unique_ptr<Connection> connection)
    : store_(std::move(store)),
      connection_(std::move(connection)),
      watch_(store_->path()),
      wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      changes_(*store_, *connection_),
      failures_(store_->path(), "change notices are held up", "change notices continue; none was lost") {
    if (!wake_) {
        throw std::system_error(errno, std::generic_category(), "no more event descriptors");
    }
    if (store_->lost()) {  // before the watch was set
        throw SqliteError(SQLITE_CANTOPEN, "the store is gone");
    }
}

void Delivery::listen(const Table& table, Connection& connection) {
    if (!changes_.has(table)) {
        watch_.add(table.id);
        changes_.add(table, connection);
    }
}

void Delivery::setHandler(hab_notice_handler handler, void* context) {
    const std::lock_guard lock(mutex_);
    handler_ = handler;
    context_ = context;
}

void Delivery::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    eventfd_write(wake_.get(), 1);
}

void Delivery::run() {
    std::chrono::milliseconds pause{0};
    for (bool going = true; going; going = going && await(pause)) {
        try {
            going = look();
            failures_.succeeded();
            pause = {};
        } catch (const std::exception& error) {
            failures_.failed(error.what());
            pause = std::clamp(2 * pause, kFirstPause, kLongestPause);
        }
    }
}

// Delivers everything committed so far. Returns false when the session is closed or the store is lost. An exception
// loses no notice: the next call continues.
bool Delivery::look() {
    if (watch_.drain() && store_->lost()) {
        return false;
    }
    watch_.renew();
    std::vector<Notice> notices;
    Changes::Fetch fetched{};
    do {
        connection_->waitUntil(Clock::now());
        fetched = changes_.fetch(notices);
        for (const Notice& notice : notices) {
            if (!deliver(notice)) {
                return false;
            }
        }
    } while (fetched == Changes::Fetch::kSome);  // later commits ring again
    return fetched == Changes::Fetch::kAll;
}

// Calls the handler. Returns false when the session is closed.
bool Delivery::deliver(const Notice& notice) {
    hab_notice_handler handler = nullptr;
    void* context = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (stopped_) {
            return false;
        }
        handler = handler_;
        context = context_;
    }
    if (handler != nullptr) {
        handler(notice.field->table->name.c_str(), notice.row, notice.field->name.c_str(), context);
    }
    return true;
}

// Waits for an event or, after a failure, for the pause. Returns false when the session is closed.
bool Delivery::await(std::chrono::milliseconds pause) {
    const bool failed = pause.count() > 0;
    std::array<pollfd, 2> ready{{{wake_.get(), POLLIN, 0}, {watch_.get(), POLLIN, 0}}};
    if (poll(ready.data(), failed ? 1 : 2, failed ? static_cast<int>(pause.count()) : -1) < 0 && errno != EINTR) {
        std::this_thread::sleep_for(std::max(pause, kFirstPause));
    }
    const std::lock_guard lock(mutex_);
    return !stopped_;
}

}  // namespace hab

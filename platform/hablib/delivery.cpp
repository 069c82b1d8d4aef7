#include "delivery.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace hab {

namespace {

// Changes read from the journal at a time. The read transaction ends before a handler runs.
constexpr std::size_t kBatch = 256;

// Retry pauses after the store was locked or failed. Otherwise the thread runs only when an event wakes it.
constexpr int kLockedPauseMs = 5;
constexpr int kFailedPauseMs = 1000;

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

std::int64_t lastPlace(Connection& connection) {
    return connection.number("SELECT coalesce(max(seq), 0) FROM hab_journal");
}

std::shared_ptr<Delivery> Delivery::start(std::shared_ptr<Store> store) {
    std::unique_ptr<Connection> connection = store->connect();
    if (!connection) {
        throw std::system_error(ENOENT, std::generic_category(), "the store is gone");
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
      readJournal_(*connection_, "SELECT seq, field, row FROM hab_journal WHERE seq > ?1 ORDER BY seq LIMIT ?2"),
      readValues_(*connection_, "SELECT seq, field, row FROM hab_value WHERE seq > ?1 ORDER BY seq"),
      position_(lastPlace(*connection_)) {
    if (!wake_) {
        throw std::system_error(errno, std::generic_category(), "no more event descriptors");
    }
}

void Delivery::listen(const Table& table, std::int64_t from) {
    const std::lock_guard lock(mutex_);
    if (!tables_.contains(&table)) {
        watch_.add(table.id);
        tables_.emplace(&table, from);
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
    Look last = Look::kDone;
    try {
        if (store_->lost(*connection_)) {
            return;  // replaced before the watch was set
        }
        do {
            last = look();
        } while (last != Look::kEnd && wait(last));
    } catch (const std::exception& error) {
        store_->failed(std::string("change notices ended: ") + error.what());
    }
}

// Delivers everything committed so far. A locked store keeps the position, and run() retries.
Delivery::Look Delivery::look() {
    if (watch_.drain() && store_->lost(*connection_)) {
        return Look::kEnd;
    }
    watch_.renew();
    std::vector<Notice> notices;
    do {
        if (const Look fetched = fetch(notices); fetched != Look::kDone) {
            return fetched;
        }
        for (const Notice& notice : notices) {
            if (!deliver(notice)) {
                return Look::kEnd;
            }
            position_ = notice.place;
        }
    } while (notices.size() >= kBatch);  // later commits ring again
    return Look::kDone;
}

Delivery::Look Delivery::fetch(std::vector<Notice>& notices) {
    notices.clear();
    try {
        connection_->waitUntil(Clock::now());
        const Run run(readJournal_);
        readJournal_.bind(1, position_).bind(2, static_cast<std::int64_t>(kBatch));
        while (readJournal_.next()) {
            notices.push_back(
                {readJournal_.number(0), readJournal_.number(1), static_cast<int>(readJournal_.number(2))});
        }
        if (!notices.empty() && notices.front().place != position_ + 1) {
            fetchMissed(notices);
        }
        return Look::kDone;
    } catch (const SqliteError& error) {
        if (statusOf(error.code()) == HAB_TIMEOUT) {
            return Look::kLocked;
        }
        store_->failed(std::string("change notices are held up: ") + error.what());
        return Look::kFailed;
    }
}

// The journal was trimmed past our position. One notice per value written since then replaces the lost changes.
void Delivery::fetchMissed(std::vector<Notice>& notices) {
    notices.clear();
    const Run run(readValues_);
    readValues_.bind(1, position_);
    while (readValues_.next()) {
        notices.push_back({readValues_.number(0), readValues_.number(1), static_cast<int>(readValues_.number(2))});
    }
}

// Calls the handler when the session subscribed to the change's table. Returns false when the session is closed.
bool Delivery::deliver(const Notice& notice) {
    const Field* field = store_->schema().field(notice.field);
    hab_notice_handler handler = nullptr;
    void* context = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (stopped_) {
            return false;
        }
        const auto table = field == nullptr ? tables_.end() : tables_.find(field->table);
        if (table == tables_.end() || notice.place <= table->second) {
            return true;
        }
        handler = handler_;
        context = context_;
    }
    if (handler != nullptr) {
        handler(field->table->name.c_str(), notice.row, field->name.c_str(), context);
    }
    return true;
}

// Waits for an event or the retry pause. Returns false when the session is closed.
bool Delivery::wait(Look last) {
    std::array<pollfd, 2> ready{{{watch_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
    const int pause = last == Look::kLocked ? kLockedPauseMs : last == Look::kFailed ? kFailedPauseMs : -1;
    while (poll(ready.data(), ready.size(), pause) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
    }
    const std::lock_guard lock(mutex_);
    return !stopped_;
}

}  // namespace hab

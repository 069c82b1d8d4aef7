#include "watch.h"

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <mutex>

#include "process.h"

namespace habconform {

// Never freed: a handler may outlive its session.
struct Watch::Inbox {
    std::vector<Place> places;
    Handler handler;
    hab_session* session = nullptr;
    std::mutex mutex;
    std::vector<Notice> seen;
    std::string failure;

    std::size_t size() {
        const std::lock_guard lock(mutex);
        return seen.size();
    }
};

Watch::Watch(Handler handler, std::vector<Place> places)
    : writer_(startChild("writer").socket), session_(openSession()), inbox_(*new Inbox) {
    inbox_.places = std::move(places);
    inbox_.handler = std::move(handler);
    inbox_.session = session();
    requireDone(hab_subscribe_cb(session(), onNotice, &inbox_), "hab_subscribe_cb");
    for (int round = 0; round < 2; ++round) {
        for (const Place& place : inbox_.places) {
            requireDone(hab_subscribe(session(), place.field->table, 1), "hab_subscribe");
        }
    }
}

void Watch::onNotice(const char* table, int row, const char* field, void* context) {
    auto& inbox = *static_cast<Inbox*>(context);
    Notice notice{0, Clock::now()};
    for (const Place& place : inbox.places) {
        if (row == place.row && std::strcmp(table, place.field->table) == 0 &&
            std::strcmp(field, place.field->name) == 0) {
            std::string failure;
            try {
                if (inbox.handler) {
                    inbox.handler(inbox.session, notice);
                }
            } catch (const std::exception& thrown) {
                failure = thrown.what();
            }
            const std::lock_guard lock(inbox.mutex);
            inbox.seen.push_back(notice);
            inbox.failure = inbox.failure.empty() ? failure : inbox.failure;
        }
        ++notice.place;
    }
}

std::vector<Notice> Watch::await(std::size_t count) const {
    while (inbox_.size() < count && eventually([this, size = inbox_.size()] { return inbox_.size() > size; })) {
    }
    const std::lock_guard lock(inbox_.mutex);
    require(inbox_.failure.empty(), inbox_.failure);
    return inbox_.seen;
}

std::size_t Watch::placeOf(unsigned number) {
    return (number * 5 + number / 8) % sequencePlaces().size();  // an irregular order
}

std::vector<Clock::time_point> Watch::write(unsigned first, unsigned count) const {
    const std::array<unsigned, 2> order{first, count};
    require(::write(writer_, order.data(), sizeof order) == sizeof order, "the second process has ended");
    std::vector<Clock::time_point> begins;
    for (std::int64_t began = 0; begins.size() < count;) {
        require(read(writer_, &began, sizeof began) == sizeof began, "the second process has ended");
        require(began >= 0, "a write of the second process returned status " + std::to_string(-began));
        begins.emplace_back(Clock::duration(began));
    }
    return begins;
}

int runWriter(int socket) {
    Session session;
    for (std::array<unsigned, 2> order{}; read(socket, order.data(), sizeof order) == sizeof order;) {
        session = session ? std::move(session) : openSession();
        for (unsigned number = order[0]; number < order[0] + order[1]; ++number) {
            const Place& place = sequencePlaces()[Watch::placeOf(number)];
            std::int64_t began = Clock::now().time_since_epoch().count();
            if (const int status = writeValue(session.get(), place, numbered(*place.field, number)); status != HAB_OK) {
                began = -status;
            }
            if (write(socket, &began, sizeof began) != sizeof began) {
                return 1;
            }
        }
    }
    return 0;
}

}  // namespace habconform

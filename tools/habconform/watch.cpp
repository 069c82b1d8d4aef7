#include "watch.h"

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <mutex>

#include "process.h"

namespace habconform {

namespace {

// What the second process reports of a write.
struct Written {
    std::int64_t began;
    std::int64_t status;
};

}  // namespace

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

Watch::Watch(Handler handler, std::vector<Place> places) : inbox_(*new Inbox) {
    const Child writer = startChild("writer");
    input_ = writer.input;
    output_ = writer.output;
    session_ = openSession();
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
    require(::write(input_, order.data(), sizeof order) == sizeof order, "the second process has ended");
    std::vector<Clock::time_point> begins;
    for (Written written{}; begins.size() < count;) {
        require(read(output_, &written, sizeof written) == sizeof written, "the second process has ended");
        requireDone(static_cast<int>(written.status), "a write of the second process");
        begins.emplace_back(Clock::duration(written.began));
    }
    return begins;
}

int runWriter(int input, int output) {
    Session session;
    for (std::array<unsigned, 2> order{}; read(input, order.data(), sizeof order) == sizeof order;) {
        session = session ? std::move(session) : openSession();
        for (unsigned number = order[0]; number < order[0] + order[1]; ++number) {
            const Place& place = sequencePlaces()[Watch::placeOf(number)];
            const auto began = Clock::now().time_since_epoch().count();
            const int status = writeValue(session.get(), place, numbered(*place.field, number));
            const Written written{began, status};
            if (write(output, &written, sizeof written) != sizeof written) {
                return 1;
            }
        }
    }
    return 0;
}

}  // namespace habconform

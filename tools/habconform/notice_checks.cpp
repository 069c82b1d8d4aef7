// Checks of change notices: their number, order and thread, and the calls that a handler may make. State that handlers
// use is never freed, since a handler may outlive its check.
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>

#include "process.h"
#include "watch.h"

namespace habconform {

namespace {

constexpr unsigned kWrites = 64;
constexpr unsigned kManyWrites = 10'000;

// The places of the second process's writes, and of the notices that arrived.
struct Sequence {
    std::vector<std::size_t> written;
    std::vector<std::size_t> noticed;
};

Sequence runSequence(unsigned count, const Watch::Handler& handler = nullptr) {
    Sequence sequence;
    const Watch watch(handler);
    const unsigned first = freshNumber();
    watch.write(first, count - 1);
    watch.await(count - 1);
    watch.write(first + count - 1);  // its notice comes after a repeated notice of an earlier write
    for (const Notice& notice : watch.await(count)) {
        sequence.noticed.push_back(notice.place);
    }
    for (unsigned i = 0; i < count; ++i) {
        sequence.written.push_back(Watch::placeOf(first + i));
    }
    return sequence;
}

std::string noticesOf(unsigned writes) {
    const auto [written, noticed] = runSequence(writes);
    require(written.size() == noticed.size() && std::is_permutation(written.begin(), written.end(), noticed.begin()),
            std::to_string(noticed.size()) + " notices of " + std::to_string(written.size()) + " writes");
    require(written == noticed, "notices arrived in another order");
    return "";
}

std::string noticeAll() {
    return noticesOf(kWrites);
}

std::string stress() {
    return noticesOf(kManyWrites);
}

std::string noticeOwn() {
    // The scratch places of the command line, and one of each further type.
    std::vector<Place> places;
    for (const Place& place : scratchPlaces()) {
        const auto alike = [&place](const Place& one) { return one.field->type == place.field->type; };
        if (places.size() < options().scratch.size() || std::none_of(places.begin(), places.end(), alike)) {
            places.push_back(place);
        }
    }
    const Watch watch(nullptr, places);
    std::size_t written = 0;
    for (const Place& place : places) {
        for (const unsigned number : {0U, 1U}) {  // a store may report only changes; at least one value differs
            const std::string value = numbered(*place.field, freshNumber() + number);
            if (value != get(watch.session(), place)) {
                set(watch.session(), place, value);
                ++written;
                require(watch.await(written).size() == written, "no notice of the write of " + textOf(place));
            }
        }
    }
    return "";
}

std::string noticeValue() {
    // For each place, the number that follows the last one whose notice arrived.
    auto* next = new std::array<unsigned, 8>;
    next->fill(freshNumber());
    const unsigned end = freshNumber() + kWrites;
    runSequence(kWrites, [next, end](hab_session* session, const Notice& notice) {
        const Place& place = sequencePlaces()[notice.place];
        unsigned& number = next->at(notice.place);
        while (Watch::placeOf(number) != notice.place) {
            ++number;
        }
        require(number >= end || get(session, place) >= numbered(*place.field, number),
                textOf(place) + " still had an earlier value");
        ++number;
    });
    return "";
}

std::string noticeSessions() {
    const Watch agent;
    const Watch link;
    agent.write(freshNumber());
    require(agent.await(1).size() == 1 && link.await(1).size() == 1, "one of two sessions received no notice");
    return "";
}

std::string noticeSerial() {
    constexpr std::chrono::milliseconds kWait{1200};  // for a notice that must not arrive in this time
    auto& entered = *new std::atomic<int>(0);
    const Watch watch([&entered, kWait](hab_session*, const Notice&) {
        require(++entered > 1 || !eventually([&entered] { return entered > 1; }, kWait),
                "a notice arrived while the handler of another one ran");
    });
    watch.write(freshNumber(), 2);
    watch.await(2);
    return "";
}

std::string handlerWrites() {
    const Place trigger = sequencePlaces()[Watch::placeOf(freshNumber())];
    const Place answer = scratchPlaces(trigger.field->type == Type::uintType ? Type::macType : Type::uintType).front();
    const auto reply = [answer](hab_session* session, const Notice& notice) {
        if (notice.place == 0) {
            set(session, answer, numbered(*answer.field, freshNumber()));
        }
    };
    const Watch watch(reply, {trigger, answer});
    watch.write(freshNumber());
    require(watch.await(2).size() == 2, "the write of the handler was not reported");
    return "";
}

// The agent registers in the handlers of the connector's state, which need this stack.
std::string noticeStack() {
    constexpr std::size_t kNeeded = DRO_THREAD_STACK / 2;
    const Watch watch([](hab_session*, const Notice&) {
        pthread_attr_t attributes;
        std::size_t size = 0;
        require(pthread_getattr_np(pthread_self(), &attributes) == 0, "the stack's size is unknown");
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_destroy(&attributes);
        require(size >= kNeeded, std::to_string(size / 1024) + " KiB");
    });
    watch.write(freshNumber());
    require(watch.await(1).size() == 1, "no notice arrived");
    return "";
}

// Blocks a handler until the check opens the gate.
struct Gate {
    std::atomic<bool> arrived{false};
    std::atomic<bool> open{false};

    // Returns false when the gate remains closed.
    bool pass() {
        arrived = true;
        return eventually([this] { return open.load(); });
    }
    void awaitArrival() const {
        require(eventually([this] { return arrived.load(); }), "no notice arrived");
    }
};

std::string noticeThread() {
    auto& gate = *new Gate;
    const auto writing = std::this_thread::get_id();
    const Watch watch([&gate, writing](hab_session*, const Notice&) {
        require(std::this_thread::get_id() != writing, "the handler ran on the thread that wrote");
        require(gate.pass(), "the write returned only after the handler");
    });
    set(watch.session(), sequencePlaces()[0], numbered(*sequencePlaces()[0].field, freshNumber()));
    gate.open = true;
    require(watch.await(1).size() == 1, "no notice arrived");
    return "";
}

std::string handlerBlocks() {
    auto& gate = *new Gate;
    const Watch watch([&gate](hab_session*, const Notice&) {
        require(gate.pass(), "calls of other threads returned only after the handler");
    });
    watch.write(freshNumber());
    gate.awaitArrival();
    onThreads(2, [&watch](unsigned thread) {
        const Place& place = sequencePlaces()[thread];
        set(watch.session(), place, numbered(*place.field, freshNumber() + kWrites));
        get(watch.session(), place);
    });
    gate.open = true;
    const std::size_t seen = watch.await(3).size();
    require(seen == 3, std::to_string(seen) + " notices of 3 writes");
    return "";
}

std::string destroy() {
    auto& gate = *new Gate;
    Watch watch([&gate](hab_session* session, const Notice& notice) {
        require(gate.pass(), "hab_destroy returned only after the handler");
        const Place& place = sequencePlaces()[notice.place];
        std::string value;
        require(readValue(session, place, value) != HAB_OK &&
                    writeValue(session, place, numbered(*place.field, freshNumber() + 1)) != HAB_OK,
                "a call with the closed session returned 0");
    });
    watch.write(freshNumber());
    gate.awaitArrival();
    watch.endSession();
    gate.open = true;
    watch.await(1);
    return "";
}

}  // namespace

const std::vector<Check> kNoticeChecks{
    {"notice-own", Check::writes, "a session's own write is reported under the field's own name",
     "its orders start no monitor, and no result is reported", noticeOwn},
    {"notice-all", Check::writes, "each write of another process is reported once, in order",
     "device events and answers are lost, handled twice, or taken for those of another order", noticeAll},
    {"notice-value", Check::writes, "a handler reads the value that was reported, or a later one",
     "it handles the previous device or answer again and misses the new one", noticeValue},
    {"notice-sessions", Check::writes, "two sessions of a process each receive their notices",
     "it does not see that the connector registers or connects", noticeSessions},
    {"notice-thread", Check::writes, "a handler runs on a library thread, and the write does not wait for it",
     "it hangs: it writes under locks that its handlers take", noticeThread},
    {"notice-stack", Check::writes, "the thread of a handler has at least half the stack of the agent's own threads",
     "a deeply nested answer to a registration crashes it", noticeStack},
    {"notice-serial", Check::writes, "the notices of a session arrive one at a time",
     "two handlers act on one change, and an order is reported twice", noticeSerial},
    {"handler-writes", Check::writes, "a handler can read and write the store",
     "device notifiers and answers are not reset, so later ones are missed", handlerWrites},
    {"handler-blocks", Check::writes, "while a handler blocks, other threads read and write, and no notice is lost",
     "a handler that waits for a lock stops all commands and events", handlerBlocks},
    {"destroy", Check::writes, "hab_destroy does not wait for a handler, which then gets a status from every call",
     "its stop hangs or crashes, or it writes after its stop", destroy},
    {"stress", Check::writes | Check::stress, "10,000 writes of another process are each reported once, in order",
     "device events are lost in a burst", stress},
};

}  // namespace habconform

#include "check.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "process.h"

namespace habconform {

void require(bool holds, const std::string& found) {
    if (!holds) {
        throw Failed(found);
    }
}

void requireDone(int status, const std::string& call) {
    require(status == HAB_OK, call + " returned status " + std::to_string(status));
}

void onThreads(unsigned count, const std::function<void(unsigned)>& work) {
    std::vector<std::string> failures(count);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            try {
                work(i);
            } catch (const Failed& failure) {
                failures[i] = failure.what();
            }
        });
    }
    std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
    std::for_each(failures.begin(), failures.end(), [](const std::string& text) { require(text.empty(), text); });
}

Session openSession() {
    Session session(hab_init());
    require(session != nullptr, "hab_init returned null");
    return session;
}

const std::vector<Place>& scratchPlaces() {
    static const std::vector<Place> places = [] {
        std::vector<Place> all = options().scratch;
        for (const Field& field : agentFields()) {
            const Place place{&field, 0, field.name};
            if (field.writes == Writes::scratch && std::find(all.begin(), all.end(), place) == all.end()) {
                all.push_back(place);
            }
        }
        return all;
    }();
    return places;
}

std::vector<Place> scratchPlaces(Type type) {
    std::vector<Place> places;
    std::copy_if(scratchPlaces().begin(), scratchPlaces().end(), std::back_inserter(places),
                 [type](const Place& place) { return place.field->type == type; });
    if (places.empty()) {
        throw Skipped(std::string("no field of type ") + nameOf(type) + " may be written; --scratch adds one");
    }
    return places;
}

const std::vector<Place>& sequencePlaces() {
    static const std::vector<Place> places = [] {
        constexpr std::size_t kMost = 8;
        const std::vector<Place> addresses = scratchPlaces(Type::macType);
        std::vector<Place> chosen;
        for (auto place = addresses.rbegin(); place != addresses.rend() && chosen.size() < kMost; ++place) {
            if (place->field->table == std::string(addresses.back().field->table)) {
                chosen.push_back(*place);
            }
        }
        return chosen;
    }();
    return places;
}

void set(hab_session* session, const Place& place, const std::string& value) {
    requireDone(writeValue(session, place, value), "the write of " + textOf(place));
}

std::string get(hab_session* session, const Place& place) {
    std::string value;
    requireDone(readValue(session, place, value), "the read of " + textOf(place));
    return value;
}

unsigned freshNumber() {
    return static_cast<unsigned>(getpid()) % 0x4000U * 0x4000U;
}

}  // namespace habconform

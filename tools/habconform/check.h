// check.h - types and helpers of checks. A check runs in a process of its own; any of its threads may call them.
#pragma once

#include <hablib.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "field.h"

namespace habconform {

struct Check {
    enum Kind : unsigned {
        reads = 0,
        writes = 1,  // requires writable fields
        stated = 2,  // its result is printed, not judged
        stress = 4,  // writes thousands of times
    };
    const char* name;
    unsigned kind;
    const char* property;
    const char* consequence;  // for the agent, when the property does not hold
    std::string (*run)();     // returns details, or throws Failed or Skipped
};
constexpr char kMembers = '\t';  // separates details from members for the check's line of JSON
extern const std::vector<Check> kValueChecks;
extern const std::vector<Check> kProcessChecks;
extern const std::vector<Check> kNoticeChecks;
extern const std::vector<Check> kStatedChecks;

class Failed : public std::runtime_error {
    using runtime_error::runtime_error;
};
class Skipped : public std::runtime_error {
    using runtime_error::runtime_error;
};
void require(bool holds, const std::string& found);
void requireDone(int status, const std::string& call);  // requires HAB_OK

using Clock = std::chrono::steady_clock;

// The time after which a check treats an event as missing, and the time limit of a whole check.
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::seconds kLimit{30};

template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds patience = kPatience) {
    const auto end = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Runs `work(0)` to `work(count - 1)`, each on its own thread, and waits for them.
void onThreads(unsigned count, const std::function<void(unsigned)>& work);

struct EndSession {
    void operator()(hab_session* session) const { hab_destroy(session); }
};
using Session = std::unique_ptr<hab_session, EndSession>;
Session openSession();  // throws Failed

// The fields that checks may write: those of the command line, then those of the schema. Checks leave them changed; the
// main process restores them at the end.
const std::vector<Place>& scratchPlaces();
std::vector<Place> scratchPlaces(Type type);  // throws Skipped when there is none
// Eight MAC addresses of one table, for writes in sequence.
const std::vector<Place>& sequencePlaces();

// Throw Failed unless the store returns HAB_OK.
void set(hab_session* session, const Place& place, const std::string& value);
std::string get(hab_session* session, const Place& place);

// Returns the first of the numbers whose values a check writes. Checks that run shortly after one another get different
// numbers.
unsigned freshNumber();

}  // namespace habconform

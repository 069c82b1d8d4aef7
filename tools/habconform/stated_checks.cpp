// Properties that differ between platforms and are not judged: notices of unchanged values, statuses, durations.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>

#include "process.h"
#include "watch.h"

namespace habconform {

namespace {

using Microseconds = std::chrono::duration<double, std::micro>;

std::string unchanged() {
    const Watch watch;
    const Place& place = sequencePlaces().front();
    for (const unsigned number : {0U, 0U, 1U}) {
        set(watch.session(), place, numbered(*place.field, freshNumber() + number));
    }
    return watch.await(3).size() == 3
               ? "reported"
               : "not reported: the agent does not see a row index or a result that is written again";
}

std::string statuses() {
    const Session session = openSession();
    hab_session* s = session.get();
    std::uint32_t number = 0;
    std::int32_t other = 0;
    const auto expect = [](const std::string& what, int wanted, int status) {
        const std::string differs = status == wanted ? "" : " (our header: " + std::to_string(wanted) + ")";
        state(what + " " + std::to_string(status) + differs);
    };
    expect("no such table", HAB_NOSUCH_ITEM, hab_get_uint(s, "NoSuchTableOfTheAgent", 0, "Index", &number));
    expect(", field", HAB_NOSUCH_ITEM, hab_get_uint(s, "DALHConfig", 0, "NoSuchFieldOfTheAgent", &number));
    expect(", row", HAB_NOSUCH_ITEM, hab_get_uint(s, "DALHConfig", 1, "FeatureID", &number));
    expect(", subscribed table", HAB_NOSUCH_ITEM, hab_subscribe(s, "NoSuchTableOfTheAgent", 1));
    expect(", another type", HAB_WRONG_TYPE, hab_get_int(s, "DALHConfig", 0, "FeatureID", &other));
    expect(", null session", HAB_INVALID, hab_get_uint(nullptr, "DALHConfig", 0, "FeatureID", &number));
    expect(", null table", HAB_INVALID, hab_get_uint(s, nullptr, 0, "FeatureID", &number));
    expect(", null field", HAB_INVALID, hab_get_uint(s, "DALHConfig", 0, nullptr, &number));
    expect(", null result", HAB_INVALID, hab_get_uint(s, "DALHConfig", 0, "FeatureID", nullptr));
    return "";
}

std::string textOf(double microseconds) {
    std::array<char, 32> text{};
    if (microseconds < 1e3) {
        std::snprintf(text.data(), text.size(), "%.1f us", microseconds);
    } else if (microseconds < 1e6) {
        std::snprintf(text.data(), text.size(), "%.1f ms", microseconds / 1e3);
    } else {
        std::snprintf(text.data(), text.size(), "%.1f s", microseconds / 1e6);
    }
    return text.data();
}

// Median and 99th percentile.
struct Figures {
    double median;
    double high;

    // Returns the figures followed by `details`, and members for the line of JSON.
    std::string with(const std::string& details) const {
        std::array<char, 80> members{};
        std::snprintf(members.data(), members.size(), R"("median_us": %.1f, "p99_us": %.1f)", median, high);
        return "median " + textOf(median) + ", 99th percentile " + textOf(high) + details + kMembers + members.data();
    }
};
Figures figuresOf(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 2], samples[samples.size() * 99 / 100]};
}

// Measures `call(0)`, `call(1)`, ... for at most `most` calls or two seconds.
Figures timed(unsigned most, const std::function<void(unsigned)>& call) {
    const auto end = Clock::now() + std::chrono::seconds(2);
    std::vector<double> samples;
    for (unsigned i = 0; i < most && (i == 0 || Clock::now() < end); ++i) {
        const auto begin = Clock::now();
        call(i);
        samples.push_back(Microseconds(Clock::now() - begin).count());
    }
    return figuresOf(samples);
}

// Reads the device tables row by row, as the agent does for a list.
std::string readTime() {
    constexpr double kReadsOfAList = 256 * 18;  // members of a device's record
    constexpr double kListWatch = 20e6;
    const Session session = openSession();
    std::vector<Field> ofDevices;
    std::copy_if(agentFields().begin(), agentFields().end(), std::back_inserter(ofDevices),
                 [](const Field& field) { return field.rows > 1; });
    const Figures figures = timed(1000, [&](unsigned i) {
        const Field& field = ofDevices[i % ofDevices.size()];
        get(session.get(), {&field, static_cast<int>(i / ofDevices.size()), field.name});
    });
    const double list = figures.median * kReadsOfAList;
    return figures.with("; the agent reads a list of 256 devices in " + textOf(list) +
                        (list < kListWatch ? "" : ", TOO LONG:") + " of the 20 s until a requested list has failed");
}

std::string writeTime() {
    constexpr double kWritesOfABulkCommand = 23;  // twenty addresses, their count, the code and the trigger
    const Session session = openSession();
    const Place place = scratchPlaces(Type::uintType).front();
    const auto write = [&](unsigned i) { set(session.get(), place, numbered(*place.field, freshNumber() + i)); };
    const Figures reset = timed(100, [&](unsigned i) {
        get(session.get(), place);
        write(i);
    });
    const Figures figures = timed(100, write);
    return figures.with("; a command on 20 devices is written in " + textOf(figures.median * kWritesOfABulkCommand) +
                        "; a device that changes within " + textOf(reset.median) + " of another one is missed");
}

std::string noticeTime() {
    const Watch watch;
    std::vector<double> delays;
    timed(50, [&](unsigned i) {
        const auto began = watch.write(freshNumber() + i).front();
        const std::vector<Notice> seen = watch.await(i + 1);
        require(seen.size() == i + 1, "a notice is missing");
        delays.push_back(Microseconds(seen.back().at - began).count());
    });
    return figuresOf(delays).with(
        " from the write of another process to the handler, of the 20 s (list) or 75 s (Circle) for an answer");
}

}  // namespace

const std::vector<Check> kStatedChecks{
    {"unchanged", Check::writes | Check::stated, "a write of an unchanged value", "", unchanged},
    {"statuses", Check::reads | Check::stated, "statuses of misuse", "", statuses},
    {"read-time", Check::reads | Check::stated, "duration of a read", "", readTime},
    {"write-time", Check::writes | Check::stated, "duration of a write", "", writeTime},
    {"notice-time", Check::writes | Check::stated, "delay of a notice", "", noticeTime},
};

}  // namespace habconform

// tour.h - `drolab tour`: the agent's story in chapters of checked steps. One thread.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "lab.h"

namespace lab {

struct TourSettings {
    bool list = false;
    bool full = false;
    std::vector<std::string> only;  // chapters; empty for all
    std::string timelineFile;       // empty for none
};

// Returns the exit status: 0 when every step held, 1 when one did not or the lab could not start, 64 for a chapter that
// does not exist. To be called before any thread is started.
int runTour(const TourSettings& settings);

// What a step throws when something is not as it should be; the text says what.
struct StepFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The durations of the agent that a chapter runs.
struct Pace {
    std::chrono::milliseconds pause;        // after a request without an answer
    std::chrono::milliseconds listWatch;    // for a device list that does not come
    std::chrono::milliseconds circleWatch;  // for a Circle agent that does not answer
};

class Tour {
 public:
    explicit Tour(const TourSettings& settings);

    // Runs every chapter that is wanted; returns the exit status.
    int run();

    // For the chapters. A step prints one line; what it throws is its failure, and the next step goes on.
    void step(const std::string& what, const std::function<void()>& act);
    Lab& lab() { return *lab_; }
    const Pace& pace() const { return pace_; }
    std::chrono::milliseconds startAgent();
    // Registers the router when it is not, and makes it claimed or not.
    void settle(bool claimed);

    // Delivers a command and checks its acknowledgement.
    void acknowledged(const std::string& command, const std::string& data, const std::string& status,
                      const std::string& reason);
    // Delivers a command and returns the device list that it is answered with.
    CloudRecord::Request listed(const std::string& command, const std::string& data);

    // Waits for a request that is right in every check and wanted.
    CloudRecord::Request request(std::size_t from, const std::string& what, const CloudRecord::Wanted& wanted,
                                 std::chrono::milliseconds extra = std::chrono::milliseconds(0));
    // Waits for an acknowledgement of a transaction and checks it.
    void acknowledgement(std::size_t from, const std::string& transaction, const std::string& status,
                         const std::string& reason, std::chrono::milliseconds extra = std::chrono::milliseconds(0));
    // Waits until a field holds a value.
    void stored(const Field& field, const std::string& value);
    // How many acknowledgements of a transaction came since.
    int acknowledgements(std::size_t from, const std::string& transaction);

 private:
    struct Chapter;
    static const std::vector<Chapter>& chapters();

    // How a chapter went.
    struct Told {
        const char* chapter;
        std::string agent;
        int steps;
        int held;
        double seconds;
    };

    void makeLab();
    void summarise(double seconds) const;
    void chapter(const Chapter& chapter);
    void useAgent(bool quick);
    bool wanted(const std::string& name) const;
    int wrongChapter() const;

    const TourSettings settings_;
    const bool colours_;
    Pace pace_;
    std::string running_;  // the agent's program
    int steps_ = 0;
    int held_ = 0;
    std::vector<Told> told_;
    Timeline timeline_;
    std::unique_ptr<Lab> lab_;
};

void check(bool holds, const std::string& otherwise);
void checkSame(const std::string& what, const std::string& is, const std::string& wanted);

// The chapters, each a list of steps.
void tourStart(Tour& tour);
void tourCommands(Tour& tour);
void tourBadMessages(Tour& tour);
void tourCloudTrouble(Tour& tour);
void tourRegistration(Tour& tour);
void tourEvents(Tour& tour);
void tourDeviceList(Tour& tour);
void tourCircle(Tour& tour);
void tourShutdown(Tour& tour);

}  // namespace lab

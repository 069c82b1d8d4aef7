// tour.h - `drolab tour`: chapters of checked steps that show what the agent does. Use it from one thread.
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
    std::vector<std::string> only;  // chapters to run; empty for all
    std::string timelineFile;       // empty for none
};

// Returns the exit status: 0 when every step passed, 1 when a step failed or the lab could not start, 64 for an unknown
// chapter. Call it before any thread starts.
int runTour(const TourSettings& settings);

// Thrown by a failed step, with a message for the user.
struct StepFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The durations of the agent that the chapter runs.
struct Pace {
    std::chrono::milliseconds pause;        // before an unanswered request is repeated
    std::chrono::milliseconds listWatch;    // until a missing device list times out
    std::chrono::milliseconds circleWatch;  // until a silent Circle agent times out
};

class Tour {
 public:
    explicit Tour(const TourSettings& settings);

    int run();

    // Called by the chapters. A step prints one line. An exception fails the step, and the next step runs.
    void step(const std::string& what, const std::function<void()>& act);
    Lab& lab() { return *lab_; }
    const Pace& pace() const { return pace_; }
    std::chrono::milliseconds startAgent();
    // Registers the router if necessary and sets its claim state.
    void settle(bool claimed);

    // Delivers a command and checks its acknowledgement.
    void acknowledged(const std::string& command, const std::string& data, const std::string& status,
                      const std::string& reason);
    // Delivers a command and returns the request with the device list.
    CloudRecord::Request listed(const std::string& command, const std::string& data);

    // Waits for a matching request and checks that it is valid.
    CloudRecord::Request request(std::size_t from, const std::string& what, const CloudRecord::Wanted& wanted,
                                 std::chrono::milliseconds extra = std::chrono::milliseconds(0));
    // Waits for a transaction's acknowledgement and checks it.
    void acknowledgement(std::size_t from, const std::string& transaction, const std::string& status,
                         const std::string& reason, std::chrono::milliseconds extra = std::chrono::milliseconds(0));
    void stored(const Field& field, const std::string& value);
    // The number of a transaction's acknowledgements since `from`.
    int acknowledgements(std::size_t from, const std::string& transaction);

 private:
    struct Chapter;
    static const std::vector<Chapter>& chapters();

    struct ChapterResult {
        const char* chapter;
        std::string agent;
        int steps;
        int passed;
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
    int passed_ = 0;
    std::vector<ChapterResult> results_;
    Timeline timeline_;
    std::unique_ptr<Lab> lab_;
};

void check(bool holds, const std::string& otherwise);
void checkSame(const std::string& what, const std::string& is, const std::string& wanted);

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

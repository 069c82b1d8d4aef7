#include "tour.h"

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <thread>

#include "cloud_summary.h"
#include "lab_provisioning.h"
#include "namespaces.h"
#include "store_fields.h"

namespace lab {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience{5000};  // for events that take milliseconds
constexpr int kWrongUsage = 64;
constexpr Pace kShipped{milliseconds(5000), milliseconds(20000), milliseconds(75000)};
constexpr Pace kQuick{milliseconds(250), milliseconds(1500), milliseconds(1500)};

double secondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// On a terminal, shows each second that a step is still waiting. The line is erased when the step ends.
class ProgressLine {
 public:
    ProgressLine(const std::string& what, bool terminal) {
        if (terminal) {
            thread_ = std::jthread([this, what](const std::stop_token& stop) { run(stop, what); });
        }
    }

 private:
    void run(const std::stop_token& stop, const std::string& what) {
        std::mutex mutex;
        std::unique_lock lock(mutex);
        const auto begin = std::chrono::steady_clock::now();
        bool shown = false;
        while (!tick_.wait_for(lock, stop, std::chrono::seconds(1), [&] { return stop.stop_requested(); })) {
            std::printf("\r  ...     %s (%.0f s)", what.c_str(), secondsSince(begin));
            std::fflush(stdout);
            shown = true;
        }
        if (shown) {
            std::printf("\r\033[K");
        }
    }

    std::condition_variable_any tick_;
    std::jthread thread_;
};

}  // namespace

struct Tour::Chapter {
    const char* name;
    const char* about;
    bool quick;  // uses the quick agent, because the shipped one would wait for long
    void (*run)(Tour& tour);
};

const std::vector<Tour::Chapter>& Tour::chapters() {
    static const std::vector<Chapter> all{
        {"start", "identity, version, link", false, tourStart},
        {"commands", "cloud commands for devices", false, tourCommands},
        {"bad-messages", "refused and ignored messages", false, tourBadMessages},
        {"cloud-trouble", "refused, unanswered and slow requests", true, tourCloudTrouble},
        {"registration", "registering the router", false, tourRegistration},
        {"events", "events that the router reports", false, tourEvents},
        {"device-list", "requested device lists", true, tourDeviceList},
        {"circle", "parental control", true, tourCircle},
        {"shutdown", "orderly shutdown", false, tourShutdown}};
    return all;
}

void check(bool holds, const std::string& otherwise) {
    if (!holds) {
        throw StepFailed(otherwise);
    }
}

void checkSame(const std::string& what, const std::string& is, const std::string& wanted) {
    check(is == wanted, what + " is \"" + is + "\" instead of \"" + wanted + "\"");
}

Tour::Tour(const TourSettings& settings)
    : settings_(settings), colours_(::isatty(STDOUT_FILENO) == 1), pace_(kShipped) {}

bool Tour::wanted(const std::string& name) const {
    return settings_.only.empty() ||
           std::find(settings_.only.begin(), settings_.only.end(), name) != settings_.only.end();
}

// Returns the exit status for an unknown chapter, else 0.
int Tour::wrongChapter() const {
    for (const auto& name : settings_.only) {
        const auto& all = chapters();
        if (std::none_of(all.begin(), all.end(), [&](const Chapter& known) { return name == known.name; })) {
            std::fprintf(stderr, "no chapter \"%s\"; see drolab tour --list\n", name.c_str());
            return kWrongUsage;
        }
    }
    return 0;
}

void Tour::makeLab() {
    if (!settings_.timelineFile.empty()) {
        // Stays open until the process exits, like standard output.
        std::FILE* file = std::fopen(settings_.timelineFile.c_str(), "we");
        check(file != nullptr, "cannot write " + settings_.timelineFile);
        timeline_.add(jsonSink(file));
    }
    // Called after the file is opened, because a private folder would hide it.
    const std::string shared = enterOwnNamespaces(std::filesystem::path(provisioning::kCaBundle).parent_path());
    if (!shared.empty()) {
        const std::string obstacle = inTheWay();
        check(obstacle.empty(), obstacle);
        std::printf("(on the host's own network: %s)\n", shared.c_str());
    }
    LabSettings settings;
    settings.verbose = true;
    lab_ = std::make_unique<Lab>(timeline_, settings);
}

int Tour::run() {
    if (settings_.list) {
        for (const auto& chapter : chapters()) {
            std::printf("%-14s %s\n", chapter.name, chapter.about);
        }
        return 0;
    }
    if (const int wrong = wrongChapter(); wrong != 0) {
        return wrong;
    }
    const auto begin = std::chrono::steady_clock::now();
    makeLab();
    for (const auto& each : chapters()) {
        if (wanted(each.name)) {
            chapter(each);
        }
    }
    summarise(secondsSince(begin));
    return passed_ == steps_ ? 0 : 1;
}

void Tour::summarise(double seconds) const {
    std::printf("\n%-14s %-14s %5s %6s %9s\n", "chapter", "agent", "steps", "passed", "time");
    for (const ChapterResult& result : results_) {
        std::printf("%-14s %-14s %5d %6d %7.1f s%s\n", result.chapter, result.agent.c_str(), result.steps,
                    result.passed, result.seconds, result.passed == result.steps ? "" : "  FAILED");
    }
    std::printf("\n%d of %d steps passed, in %.1f s\n", passed_, steps_, seconds);
}

void Tour::chapter(const Chapter& chapter) {
    const bool quick = chapter.quick && !settings_.full;
    pace_ = quick ? kQuick : kShipped;
    std::printf("\n%s - %s\n", chapter.name, chapter.about);
    if (quick) {
        std::printf(
            "  (droagent-quick: the same agent with pauses of %lld ms, list watch %lld ms, Circle watch %lld ms)\n",
            static_cast<long long>(pace_.pause.count()), static_cast<long long>(pace_.listWatch.count()),
            static_cast<long long>(pace_.circleWatch.count()));
    }
    const int stepsBefore = steps_;
    const int passedBefore = passed_;
    const auto begin = std::chrono::steady_clock::now();
    try {
        useAgent(quick);
        chapter.run(*this);
    } catch (const std::exception& problem) {  // thrown outside a step
        step("prepare the chapter", [&] { throw StepFailed(problem.what()); });
    }
    lab_->cloud.behave(Mood::Accept);
    lab_->cloud.slow(milliseconds(0));
    lab_->devices.mood(ServiceMood::Ok);
    lab_->circle.mood(CircleMood::Success);
    results_.push_back({chapter.name, running_, steps_ - stepsBefore, passed_ - passedBefore, secondsSince(begin)});
}

// The chapter "start" starts the agent in a step of its own.
void Tour::useAgent(bool quick) {
    const std::string program = quick ? "droagent-quick" : "droagent";
    if (program == running_ && lab_->agent.running()) {
        return;
    }
    if (lab_->agent.running()) {
        check(lab_->agent.stop(kPatience) == 0, "the previous agent did not exit with status 0");
    }
    running_ = program;
    if (steps_ > 0 || !wanted("start")) {
        startAgent();
    }
}

milliseconds Tour::startAgent() {
    return lab_->startAgent(running_, {{"TZ", "UTC0"},
                                       {"DROAGENT_QUICK_PAUSE_MS", std::to_string(kQuick.pause.count())},
                                       {"DROAGENT_QUICK_LIST_WATCH_MS", std::to_string(kQuick.listWatch.count())},
                                       {"DROAGENT_QUICK_CIRCLE_WATCH_MS", std::to_string(kQuick.circleWatch.count())}});
}

void Tour::step(const std::string& what, const std::function<void()>& act) {
    ++steps_;
    const auto begin = std::chrono::steady_clock::now();
    std::string problem;
    {
        const ProgressLine progress(what, colours_);
        try {
            act();
        } catch (const std::exception& failure) {
            problem = failure.what();
        }
    }
    const double ms = 1000 * secondsSince(begin);
    const bool passed = problem.empty();
    passed_ += passed ? 1 : 0;
    const char* colour = !colours_ ? "" : passed ? "\033[32m" : "\033[31m";
    std::printf("  %s%-6s%s  %s  %.0f ms\n", colour, passed ? "ok" : "FAILED", colours_ ? "\033[0m" : "", what.c_str(),
                ms);
    if (!passed) {
        std::printf("          %s\n", printable(problem).c_str());
    }
    std::fflush(stdout);
    timeline_.note(Actor::Lab, (passed ? "passed: " : "FAILED: ") + what + (passed ? "" : ": " + problem),
                   passed ? Tone::Good : Tone::Bad);
}

void Tour::settle(bool claimed) {
    RegistrationAnswer answer;
    answer.claimState = claimed;
    lab_->cloud.registration(answer);
    if (lab_->store.isTrue(field::DROStatus::addJorvdeviceIdDone) &&
        lab_->store.isTrue(field::DroCfg::claimState) == claimed) {
        return;
    }
    lab_->registerAgain();
    stored(field::DROStatus::addJorvdeviceIdDone, "true");
    stored(field::DroCfg::claimState, claimed ? "true" : "false");
}

CloudRecord::Request Tour::request(std::size_t from, const std::string& what, const CloudRecord::Wanted& wanted,
                                   milliseconds extra) {
    auto found = lab_->record.await(from, wanted, kPatience + extra);
    check(found != nullptr, "no " + what + " reached the cloud");
    check(found->good(), what + " is wrong: " + found->fault);
    return found;
}

void Tour::acknowledgement(std::size_t from, const std::string& transaction, const std::string& status,
                           const std::string& reason, milliseconds extra) {
    const auto found = request(
        from, "acknowledgement of " + transaction,
        [&](const CloudRequest& each) {
            return each.endpoint == "/transactionAck/" && each.text("transactionId") == transaction;
        },
        extra);
    checkSame("transactionStatus", found->text("transactionStatus"), status);
    checkSame("failureReason", found->text("failureReason"), reason);
    check(deviceListOf(*found).is_null(), "the acknowledgement contains a list");
}

void Tour::acknowledged(const std::string& command, const std::string& data, const std::string& status,
                        const std::string& reason) {
    const std::string transaction = newTransaction();
    const std::size_t from = lab_->record.mark();
    lab_->connector.deliver(envelope(transaction, command, data), command + " " + data);
    acknowledgement(from, transaction, status, reason);
}

CloudRecord::Request Tour::listed(const std::string& command, const std::string& data) {
    const Outcome outcome = sendCommand(*lab_, command, data, kPatience);
    check(outcome.success, outcome.text);
    checkSame("failureReason", outcome.answer->text("failureReason"), "Success");
    return outcome.answer;
}

void Tour::stored(const Field& field, const std::string& value) {
    if (!lab_->store.await(field, value, kPatience)) {
        checkSame(std::string(field.table) + "." + field.name, lab_->store.get(field), value);
    }
}

int Tour::acknowledgements(std::size_t from, const std::string& transaction) {
    const auto requests = lab_->record.since(from);
    return static_cast<int>(std::count_if(requests.begin(), requests.end(), [&](const auto& each) {
        return each->endpoint == "/transactionAck/" && each->text("transactionId") == transaction;
    }));
}

int runTour(const TourSettings& settings) {
    try {
        return Tour(settings).run();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "the tour cannot start: %s\n", problem.what());
        return 1;
    }
}

}  // namespace lab

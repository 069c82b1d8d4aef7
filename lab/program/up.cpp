#include "up.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "control.h"
#include "web.h"

namespace lab {

namespace {

constexpr std::chrono::seconds kStopPatience{10};

// SIGINT and SIGTERM as a descriptor. Threads started afterwards inherit the blocked signals.
class EndSignals {
 public:
    EndSignals() {
        sigset_t signals;
        ::sigemptyset(&signals);
        ::sigaddset(&signals, SIGINT);
        ::sigaddset(&signals, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        fd_ = ::signalfd(-1, &signals, SFD_CLOEXEC);
    }
    ~EndSignals() { ::close(fd_); }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    // True when a signal arrived; false when the process of `pidFd` exited first.
    bool awaitOrEndOf(int pidFd) const {
        std::array<pollfd, 2> waiting{pollfd{fd_, POLLIN, 0}, pollfd{pidFd, POLLIN, 0}};
        while (::poll(waiting.data(), waiting.size(), -1) < 0 && errno == EINTR) {
        }
        return waiting[0].revents != 0;
    }

 private:
    int fd_ = -1;
};

int failed(Timeline& timeline, const std::string& why) {
    timeline.note(Actor::Lab, why, Tone::Bad);
    return 1;
}

int stopAgent(Lab& lab) {
    const auto begin = std::chrono::steady_clock::now();
    lab.timeline.message(Actor::Lab, Actor::Agent, "SIGUSR1");
    const auto status = lab.agent.stop(kStopPatience);
    if (!status) {
        return failed(lab.timeline, "the agent did not stop and was killed");
    }
    Event ended;
    ended.from = ended.to = Actor::Agent;
    ended.what = "exited with status " + std::to_string(*status);
    ended.tone = *status == 0 ? Tone::Good : Tone::Bad;
    ended.took = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
    lab.timeline.post(ended);
    return *status == 0 ? 0 : 1;
}

int run(Timeline& timeline, const UpSettings& settings, const EndSignals& signals) {
    if (const std::string obstacle = inTheWay(); !obstacle.empty()) {
        return failed(timeline, obstacle);
    }
    const std::shared_ptr<WebFeed> feed = settings.webPort != 0 ? std::make_shared<WebFeed>() : nullptr;
    if (feed) {
        timeline.add(feedSink(feed));
    }
    Lab lab(timeline, settings.lab);
    const ControlServer control(lab);
    std::optional<WebPage> page;
    if (feed) {
        page.emplace(lab, feed, settings.webPort);
        timeline.note(Actor::Lab, "the page: " + page->address(), Tone::Good);
    }
    timeline.note(Actor::Lab, "store " + lab.storePath() + ", cloud at port " + std::to_string(lab.cloud.port()) +
                                  ", agent's log " + lab.logFile());
    const auto took = lab.startAgent("droagent");
    timeline.note(Actor::Lab,
                  "the agent accepts messages after " + std::to_string(took.count()) +
                      " ms; try: drolab send BLOCK_CD, drolab status, drolab --help",
                  Tone::Good);
    if (!signals.awaitOrEndOf(lab.agent.pidFd())) {
        const auto status = lab.agent.awaitEnd(kStopPatience);
        return failed(timeline, "the agent exited by itself with status " + std::to_string(status.value_or(-1)));
    }
    return stopAgent(lab);
}

}  // namespace

int runUp(const UpSettings& settings) {
    Timeline timeline;
    timeline.add(settings.json ? jsonSink(stdout) : terminalSink(stdout, ::isatty(STDOUT_FILENO) == 1));
    const EndSignals signals;
    try {
        return run(timeline, settings, signals);
    } catch (const std::exception& problem) {
        return failed(timeline, problem.what());
    }
}

}  // namespace lab

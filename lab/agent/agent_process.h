// agent_process.h - the agent as a child process. One thread uses it, the one that made it: the child is told to end
// when that thread does.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "timeline.h"

namespace lab {

struct AgentSettings {
    std::string program;                             // path of the binary
    std::string logFile;                             // its standard error, appended
    bool verbose = false;                            // show its log lines in the timeline too
    std::map<std::string, std::string> environment;  // added to ours; proxy variables are taken out
};

class AgentProcess {
 public:
    explicit AgentProcess(Timeline& timeline) : timeline_(timeline) {}
    // Stops a running agent, by force after five seconds.
    ~AgentProcess();
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    // Starts it in a process group of its own. Throws std::runtime_error, also when it cannot be executed.
    void start(const AgentSettings& settings);

    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }

    // Becomes readable when the agent ends; -1 when there is none.
    int pidFd() const { return pidFd_; }

    // Sends SIGUSR1 and waits. Returns the exit status, 128 and the signal's number for a death by signal, or nothing
    // when it did not end in time (it runs on).
    std::optional<int> stop(std::chrono::milliseconds timeout);

    // Waits for its end without asking for it.
    std::optional<int> awaitEnd(std::chrono::milliseconds timeout);

 private:
    void readLog(int pipe, const AgentSettings& settings);

    Timeline& timeline_;
    pid_t pid_ = 0;
    int pidFd_ = -1;
    std::jthread log_;
};

}  // namespace lab

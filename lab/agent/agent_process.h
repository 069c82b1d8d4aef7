// agent_process.h - the agent as a child process. Use it only from the thread that created it: the agent receives
// SIGUSR1 when the thread that started it exits.
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
    std::string logFile;                             // receives its standard output and standard error, appended
    bool verbose = false;                            // also show its log lines in the timeline
    std::map<std::string, std::string> environment;  // added to this process's environment, without its proxy variables
};

class AgentProcess {
 public:
    explicit AgentProcess(Timeline& timeline) : timeline_(timeline) {}
    // Stops a running agent, with SIGKILL after five seconds.
    ~AgentProcess();
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    // Starts the agent in its own process group. Throws std::runtime_error, also when the program cannot be executed.
    void start(const AgentSettings& settings);

    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }

    // Becomes readable when the agent exits; -1 when no agent runs.
    int pidFd() const { return pidFd_; }

    // Sends SIGUSR1 and waits. Returns the exit status, 128 plus the signal number when a signal killed the agent, or
    // std::nullopt on timeout (the agent keeps running).
    std::optional<int> stop(std::chrono::milliseconds timeout);

    // Waits for the agent to exit without sending a signal. Returns the same values as stop().
    std::optional<int> awaitEnd(std::chrono::milliseconds timeout);

 private:
    void readLog(int pipe, const AgentSettings& settings);

    Timeline& timeline_;
    pid_t pid_ = 0;
    int pidFd_ = -1;
    std::jthread log_;
};

}  // namespace lab

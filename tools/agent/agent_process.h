// agent_process.h - determines from the pid file whether the agent runs on this machine. Sends it no signal. Any
// thread.
#pragma once

#include <sys/types.h>

namespace tools {

inline constexpr const char* kPidFile = "/tmp/droagent.pid";

struct AgentProcess {
    enum State {
        running,
        absent,
        killed,  // no agent runs; the last one left its pid file
        unreadable
    } state;
    pid_t id = 0;   // of the running agent
    int error = 0;  // error number of the unreadable file
};
AgentProcess agentProcess();

}  // namespace tools

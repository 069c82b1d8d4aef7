// test_agent.h - the built agent, started as a process in the test's own namespaces.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/types.h>

#include <csignal>
#include <functional>
#include <map>
#include <optional>

#include "agent_log.h"
#include "test_cloud.h"

namespace dro_test {

inline constexpr int kNotificationPort = 4466;
inline constexpr int kEventPort = 4455;
inline constexpr const char* kPidFile = "/tmp/droagent.pid";

struct Launch {
    bool quick = false;                                // droagent-quick, with the waits that `environment` names
    std::vector<std::string> arguments{};              // after the program's name
    std::map<std::string, std::string> environment{};  // added; HAB_STORE and HAB_LOG_FILE are set already
    std::function<void()> before{};                    // in the child, before the program is started
    std::string folder{};                              // for its log and output, the store's when empty
};

// Exactly one at a time in one namespace. Throws std::runtime_error when it cannot be started.
class AgentProcess {
 public:
    explicit AgentProcess(const TestStore& store, const Launch& launch = {});
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;
    // Kills it when it still runs.
    ~AgentProcess();

    pid_t pid() const { return pid_; }
    void signal(int number) const { kill(pid_, number); }
    // The exit status, 256 + the signal that killed it, or none when it still ran after `patience`.
    std::optional<int> wait_exit(std::chrono::milliseconds patience = kPatience);
    bool running() { return !wait_exit(std::chrono::milliseconds(0)); }

    // True when both ports answer and the agent has reported the connector's state once.
    bool wait_for_link() const { return log_.wait_for("Returning from JorvAgentStatus_cbHandler\n"); }

    // Standard output and standard error so far.
    std::string output() const { return file_text(output_path_); }
    const AgentLog& log() const { return log_; }

 private:
    std::string output_path_;
    AgentLog log_;
    pid_t pid_ = -1;
    int pidfd_ = -1;
    std::optional<int> status_;
};

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr std::chrono::seconds kAtOnce{5};  // they take a second of their own at the end
#else
inline constexpr std::chrono::seconds kAtOnce{1};
#endif
// Asks the agent to end and expects it to do so at once, with its pid file. How long it took.
std::chrono::milliseconds expect_prompt_end(AgentProcess& agent);

// A router whose cloud answers, for agents as processes.
class ProcessTest : public ::testing::Test {
 protected:
    ProcessTest();

    TestStore store;
    TestCloud cloud;
};

// The command to block the device of this number, in a transaction of the same; the address that it has then stored.
std::string block_command(int number);
std::string block_address(int number);

// Connects to `address`:`port`. The descriptor is the caller's; -1 when nobody listens.
int connect_to(int port, in_addr_t address = INADDR_LOOPBACK);
// One message on a connection of its own, as the connector delivers it. False when nobody takes it.
bool send_message(int port, std::string_view message);
// A socket that listens on 127.0.0.1:`port` and never answers; the caller's.
int occupy(int port);

}  // namespace dro_test

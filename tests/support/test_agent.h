// test_agent.h - the built agent as a process in the test's own namespaces.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/types.h>

#include <csignal>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "agent_log.h"
#include "test_cloud.h"

namespace dro_test {

inline constexpr int kNotificationPort = 4466;
inline constexpr int kEventPort = 4455;
inline constexpr const char* kPidFile = "/tmp/droagent.pid";

struct Launch {
    bool quick = false;                                // droagent-quick, with the durations in `environment`
    std::vector<std::string> arguments{};              // after the program name
    std::map<std::string, std::string> environment{};  // added; HAB_STORE and HAB_LOG_FILE are always set
    std::function<void()> before{};                    // runs in the child before exec
    std::string folder{};                              // for its log and output; the store's folder when empty
};

// Only one at a time per namespace. Throws std::runtime_error when it cannot be started.
class AgentProcess {
 public:
    explicit AgentProcess(const TestStore& store, const Launch& launch = {});
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;
    // Kills the agent if it is still running.
    ~AgentProcess();

    pid_t pid() const { return pid_; }
    void signal(int number) const { kill(pid_, number); }
    // The exit status, 256 + the signal that killed it, or std::nullopt when it is still running after `patience`.
    std::optional<int> wait_exit(std::chrono::milliseconds patience = kPatience);
    bool running() { return !wait_exit(std::chrono::milliseconds(0)); }

    // True when both ports accept connections and the agent has reported the connector's state once.
    bool wait_for_link() const { return log_.wait_for("Returning from JorvAgentStatus_cbHandler\n"); }

    // Standard output and standard error so far.
    std::string output() const { return file_text(output_path_); }
    const AgentLog& log() const { return log_; }

    // The numbers of its threads and open descriptors.
    std::pair<std::ptrdiff_t, std::ptrdiff_t> threads_and_descriptors() const;

 private:
    std::string output_path_;
    AgentLog log_;
    pid_t pid_ = -1;
    int pidfd_ = -1;
    std::optional<int> status_;
};

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr std::chrono::seconds kAtOnce{5};  // their runtime takes a second at exit
#else
inline constexpr std::chrono::seconds kAtOnce{1};
#endif
// Stops the agent and expects it to exit promptly and remove its pid file. Returns the time it took.
std::chrono::milliseconds expect_prompt_end(AgentProcess& agent);

// A router with an answering cloud, for tests with agent processes.
class ProcessTest : public ::testing::Test {
 protected:
    ProcessTest();

    TestStore store;
    TestCloud cloud;
};

// The command that blocks device `number`, with a transaction id of that number, and the address that it stores.
std::string block_command(int number);
std::string block_address(int number);

// Connects to `address`:`port`. The caller owns the descriptor; -1 when nothing listens.
int connect_to(int port, in_addr_t address = INADDR_LOOPBACK);
// Sends one message on its own connection, as the connector does. False when it is not accepted.
bool send_message(int port, std::string_view message);
// Sends a command until the agent accepts it and closes the connection. When the backlog is full, the kernel may drop a
// connection that the client considers established. Returns the number of attempts.
int deliver(const std::string& message);
// A socket that listens on 127.0.0.1:`port` and never answers. The caller owns it.
int occupy(int port);

}  // namespace dro_test

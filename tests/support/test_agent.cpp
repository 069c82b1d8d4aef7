#include "test_agent.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "agent_test.h"

namespace dro_test {
namespace {

sockaddr_in place(int port, in_addr_t address = INADDR_LOOPBACK) {
    return {AF_INET, htons(static_cast<in_port_t>(port)), {htonl(address)}, {}};
}

std::string file_in(const TestStore& store, const Launch& launch, const char* name) {
    return (launch.folder.empty() ? store.folder() : launch.folder) + name;
}

[[noreturn]] void become_agent(const Launch& launch, const std::string& log, const std::string& output) {
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a killed test leaves no agent behind
    setenv("HAB_LOG_FILE", log.c_str(), 1);
    for (const auto& [name, value] : launch.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    if (launch.before) {
        launch.before();
    }
    // As called from a shell: the agent's program name starts after "./".
    std::string name = launch.quick ? "./droagent-quick" : "./droagent";
    std::vector<char*> arguments{name.data()};
    for (const std::string& argument : launch.arguments) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execv(launch.quick ? DRO_TEST_QUICK_AGENT : DRO_TEST_AGENT, arguments.data());
    _exit(127);
}

}  // namespace

AgentProcess::AgentProcess(const TestStore& store, const Launch& launch)
    : output_path_(file_in(store, launch, "/output")), log_(file_in(store, launch, "/process.log")) {
    unlink(output_path_.c_str());
    unlink(log_.path().c_str());
    pid_ = fork();
    if (pid_ == 0) {
        become_agent(launch, log_.path(), output_path_);
    }
    pidfd_ = pid_ > 0 ? static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)) : -1;
    if (pidfd_ < 0) {
        throw std::runtime_error("the agent could not be started");
    }
}

AgentProcess::~AgentProcess() {
    if (running()) {
        signal(SIGKILL);
        wait_exit();
    }
    close(pidfd_);
}

std::optional<int> AgentProcess::wait_exit(std::chrono::milliseconds patience) {
    pollfd ended{pidfd_, POLLIN, 0};
    if (!status_ && poll(&ended, 1, static_cast<int>(patience.count())) > 0) {
        int raw = 0;
        waitpid(pid_, &raw, 0);
        status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 256 + WTERMSIG(raw);
    }
    return status_;
}

std::pair<std::ptrdiff_t, std::ptrdiff_t> AgentProcess::threads_and_descriptors() const {
    const auto count = [folder = "/proc/" + std::to_string(pid_)](const char* what) {
        return std::distance(std::filesystem::directory_iterator(folder + what), std::filesystem::directory_iterator());
    };
    return {count("/task"), count("/fd")};
}

std::chrono::milliseconds expect_prompt_end(AgentProcess& agent) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    agent.signal(SIGUSR1);
    EXPECT_EQ(agent.wait_exit(kAtOnce), 0);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    EXPECT_FALSE(std::filesystem::exists(kPidFile));
    return took;
}

ProcessTest::ProcessTest() {
    set_identity(store);
    store.set("Drocfg.DroBaseURL", cloud.base_url());
}

std::string block_address(int number) {
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "02:00:00:00:%02X:%02X", number / 256 % 256, number % 256);
    return text.data();
}

std::string block_command(int number) {
    return R"({"UUID":")" + std::to_string(number) + R"(","cmd":"BLOCK_CD","data":{"cdMac":")" + block_address(number) +
           R"("}})";
}

int connect_to(int port, in_addr_t address) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in where = place(port, address);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

bool send_message(int port, std::string_view message) {
    const int descriptor = connect_to(port);
    if (descriptor < 0) {
        return false;
    }
    const ssize_t sent = send(descriptor, message.data(), message.size(), MSG_NOSIGNAL);
    close(descriptor);
    return sent == static_cast<ssize_t>(message.size());
}

int deliver(const std::string& message) {
    for (int times = 1;; ++times) {
        const int descriptor = connect_to(kNotificationPort);
        char none = 0;
        const bool taken = send(descriptor, message.data(), message.size(), MSG_NOSIGNAL) > 0 &&
                           shutdown(descriptor, SHUT_WR) == 0 && recv(descriptor, &none, 1, 0) == 0;
        close(descriptor);
        if (taken || times == 100) {
            return times;
        }
    }
}

int occupy(int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in where = place(port);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0 || listen(descriptor, 1) != 0) {
        close(descriptor);
        throw std::runtime_error("the port is taken already");
    }
    return descriptor;
}

}  // namespace dro_test

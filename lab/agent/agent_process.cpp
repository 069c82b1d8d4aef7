#include "agent_process.h"

#include <fcntl.h>
#include <poll.h>
#include <strings.h>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace lab {

namespace {

constexpr std::chrono::milliseconds kPatience{5000};
constexpr int kLogPipeSize = 1 << 20;  // the agent drops log lines that do not fit

bool isProxyVariable(std::string_view entry) {
    const std::string name(entry.substr(0, entry.find('=')));
    constexpr std::array kProxies{"http_proxy", "https_proxy", "all_proxy", "no_proxy"};
    return std::any_of(kProxies.begin(), kProxies.end(),
                       [&](const char* proxy) { return strcasecmp(name.c_str(), proxy) == 0; });
}

std::vector<std::string> environmentFor(const AgentSettings& settings) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const bool replaced = settings.environment.contains(std::string(text.substr(0, text.find('='))));
        if (!replaced && !isProxyVariable(text)) {
            entries.emplace_back(text);
        }
    }
    for (const auto& [name, value] : settings.environment) {
        entries.emplace_back(name).append("=").append(value);
    }
    return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (auto& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Uses only functions that are safe between fork and exec.
[[noreturn]] void becomeAgent(const char* program, char* const* arguments, char* const* environment, int log,
                              int failure) {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGUSR1);
    ::dup2(log, STDERR_FILENO);
    ::dup2(log, STDOUT_FILENO);
    ::execve(program, arguments, environment);
    const int reason = errno;
    [[maybe_unused]] const ssize_t told = ::write(failure, &reason, sizeof reason);
    ::_exit(127);
}

struct Pipe {
    Pipe() {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot create a pipe");
        }
    }
    ~Pipe() {
        closeRead();
        closeWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void closeRead() { closeEnd(0); }
    void closeWrite() { closeEnd(1); }
    int takeRead() { return std::exchange(ends[0], -1); }

    std::array<int, 2> ends{-1, -1};

 private:
    void closeEnd(std::size_t end) {
        if (ends.at(end) >= 0) {
            ::close(std::exchange(ends.at(end), -1));
        }
    }
};

}  // namespace

AgentProcess::~AgentProcess() {
    if (running() && !stop(kPatience)) {
        ::kill(pid_, SIGKILL);
        awaitEnd(kPatience);
    }
}

void AgentProcess::start(const AgentSettings& settings) {
    Pipe log;
    Pipe failure;
    std::vector<std::string> environment = environmentFor(settings);
    const std::vector<char*> environmentPointers = pointersTo(environment);
    std::vector<std::string> arguments{settings.program};
    const std::vector<char*> argumentPointers = pointersTo(arguments);

    ::fcntl(log.ends[1], F_SETPIPE_SZ, kLogPipeSize);
    const pid_t child = ::fork();
    if (child == 0) {
        becomeAgent(settings.program.c_str(), argumentPointers.data(), environmentPointers.data(), log.ends[1],
                    failure.ends[1]);
    }
    if (child < 0) {
        throw std::runtime_error("cannot create a process for the agent");
    }
    failure.closeWrite();
    int reason = 0;
    if (::read(failure.ends[0], &reason, sizeof reason) == sizeof reason) {
        ::waitpid(child, nullptr, 0);
        throw std::runtime_error("cannot run " + settings.program + ": " + std::strerror(reason));
    }
    log.closeWrite();
    pid_ = child;
    pidFd_ = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    log_ = std::jthread([this, pipe = log.takeRead(), settings] { readLog(pipe, settings); });
}

void AgentProcess::readLog(int pipe, const AgentSettings& settings) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(::fdopen(pipe, "r"), std::fclose);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(settings.logFile.c_str(), "ae"), std::fclose);
    char* line = nullptr;
    std::size_t room = 0;
    for (ssize_t length = 0; in && (length = ::getline(&line, &room, in.get())) > 0;) {
        if (out) {
            std::fputs(line, out.get());
            std::fflush(out.get());
        }
        if (settings.verbose) {
            line[length - 1] = '\0';
            timeline_.note(Actor::Agent, std::string("log: ") + line);
        }
    }
    std::free(line);
}

std::optional<int> AgentProcess::stop(std::chrono::milliseconds timeout) {
    if (running()) {
        ::kill(pid_, SIGUSR1);
    }
    return awaitEnd(timeout);
}

std::optional<int> AgentProcess::awaitEnd(std::chrono::milliseconds timeout) {
    if (!running()) {
        return std::nullopt;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    pollfd ended{pidFd_, POLLIN, 0};
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        const int ready = ::poll(&ended, 1, static_cast<int>(std::max<std::int64_t>(0, left.count())));
        if (ready > 0) {
            break;
        }
        if (ready == 0 || errno != EINTR) {
            return std::nullopt;
        }
    }
    int status = 0;
    ::waitpid(pid_, &status, 0);
    ::close(pidFd_);
    pid_ = 0;
    pidFd_ = -1;
    log_.join();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace lab

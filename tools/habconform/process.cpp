#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "watch.h"

namespace habconform {

namespace {

constexpr int kSocket = 3;  // the descriptor in a child process

volatile std::sig_atomic_t g_interrupted = 0;

void send(int descriptor, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = write(descriptor, bytes.data() + sent, bytes.size() - sent);
        if (count < 0 && errno != EINTR) {
            return;
        }
        sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

// Appends what can be read now. Returns false at the end.
bool receive(int descriptor, std::string& bytes) {
    std::array<char, 4096> part{};
    const ssize_t count = read(descriptor, part.data(), part.size());
    bytes.append(part.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0;
}

// Returns for each scratch place: '+', its value and NUL, or '-' and NUL when the value cannot be read.
std::string saveValues() {
    std::string saved;
    const Session session = openSession();
    if (!options().readOnly) {
        for (const Place& place : scratchPlaces()) {
            std::string value;
            const bool read = readValue(session.get(), place, value) == HAB_OK;
            saved += (read ? '+' + value : "-") + '\0';
        }
    }
    return saved;
}

// Writes the saved values that differ from the current ones.
std::string restoreValues() {
    std::string saved;
    while (receive(kSocket, saved)) {
    }
    std::string different;
    const Session session = openSession();
    for (const auto& [place, value] : savedValues(saved)) {
        if (get(session.get(), place) != value) {
            writeValue(session.get(), place, value);
            different += get(session.get(), place) != value ? " " + textOf(place) : "";
        }
    }
    require(different.empty(), "not restored:" + different);
    return "";
}

std::string runCheck(const std::string& name) {
    for (const Check& check : allChecks()) {
        if (name == check.name) {
            return check.run();
        }
    }
    throw Failed("there is no check " + name);
}

// Executes this program again. Returns only when that fails.
void execProgram(const std::string& role) {
    std::array<char, 4096> path{};
    std::vector<std::string> words = options().words;
    words.insert(words.end(), {"--role", role});
    std::vector<char*> arguments(words.size() + 1, nullptr);
    std::transform(words.begin(), words.end(), arguments.begin(), [](std::string& word) { return word.data(); });
    if (readlink("/proc/self/exe", path.data(), path.size() - 1) > 0) {
        execv(path.data(), arguments.data());
    }
}

// Returns the reason why a process ended without a report.
std::string causeOf(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("killed by signal ") + std::to_string(WTERMSIG(status)) + ", " + strsignal(WTERMSIG(status));
    }
    return "exited with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Options& options() {
    static Options only;
    return only;
}

std::vector<Check> allChecks() {
    std::vector<Check> all;
    for (const auto* checks : {&kValueChecks, &kProcessChecks, &kNoticeChecks, &kStatedChecks}) {
        all.insert(all.end(), checks->begin(), checks->end());
    }
    return all;
}

void state(const std::string& details) {
    send(kSocket, details);
}

int runRole() {
    const std::string& role = options().role;
    if (role == "writer") {
        return runWriter(kSocket);
    }
    Outcome::Result result = Outcome::holds;
    std::string details;
    try {
        details = role == "save" ? saveValues() : role == "restore" ? restoreValues() : runCheck(role);
    } catch (const Skipped& reason) {
        result = Outcome::skipped;
        details = reason.what();
    } catch (const std::exception& failure) {
        result = Outcome::fails;
        details = failure.what();
    }
    send(kSocket, details + '\0' + static_cast<char>(result));
    return 0;
}

Child startChild(const std::string& role) {
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "no more sockets");
    const pid_t id = fork();
    require(id >= 0, "no more processes");
    if (id == 0) {
        if (role != "writer") {
            setpgid(0, 0);  // the writer stays in the process group of its check
        }
        dup2(fcntl(ends[1], F_DUPFD_CLOEXEC, kSocket + 1), kSocket);  // never equal, so the copy survives execv
        dup2(STDERR_FILENO, STDOUT_FILENO);                           // output of a library is not a result
        execProgram(role);
        // An emulator may be unable to execute the program. Nothing has used the library yet in this process.
        close(ends[0]);
        options().role = role;
        _exit(runRole());
    }
    if (role != "writer") {
        setpgid(id, id);  // in both processes, because either may run first
    }
    close(ends[1]);
    return {id, ends[0]};
}

Outcome runChild(const std::string& role, const std::string& input, std::chrono::seconds limit) {
    constexpr int kSlice = 100;  // milliseconds until a signal is noticed
    const Child child = startChild(role);
    send(child.socket, input);
    shutdown(child.socket, SHUT_WR);
    const auto deadline = Clock::now() + limit;
    const auto stopped = [&role] { return interrupted() && role != "restore"; };
    std::string said;
    bool open = true;
    while (open && !stopped() && Clock::now() < deadline) {
        pollfd ready{child.socket, POLLIN, 0};
        open = poll(&ready, 1, kSlice) <= 0 || receive(child.socket, said);
    }
    if (open) {
        kill(-child.id, SIGKILL);
    }
    int status = 0;
    while (waitpid(child.id, &status, 0) < 0 && errno == EINTR) {
    }
    kill(-child.id, SIGKILL);  // the processes that the check started
    close(child.socket);
    if (stopped()) {
        return {Outcome::stopped, ""};
    }
    if (const auto end = said.rfind('\0'); end != std::string::npos && end + 1 < said.size()) {
        return {static_cast<Outcome::Result>(said[end + 1]), said.substr(0, end)};
    }
    const std::string cause = open ? "no result within " + std::to_string(limit.count()) + " s" : causeOf(status);
    return {Outcome::fails, said + (said.empty() ? "" : ", ") + cause};
}

SavedValues savedValues(const std::string& report) {
    SavedValues values;
    std::size_t begin = 0;
    for (const Place& place : scratchPlaces()) {
        const auto end = report.find('\0', begin);
        if (end == std::string::npos) {
            break;
        }
        if (report[begin] == '+') {
            values.emplace_back(place, report.substr(begin + 1, end - begin - 1));
        }
        begin = end + 1;
    }
    return values;
}

void catchSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { g_interrupted = 1; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);  // values are restored even when the output is closed
}

bool interrupted() {
    return g_interrupted != 0;
}

}  // namespace habconform

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "commands.h"

namespace habctl {

namespace {

constexpr const char* kPidFile = "/tmp/droagent.pid";

struct Fact {
    const char* label;
    const char* table;
    const char* field;
};
// Values about the router and its cloud.
constexpr std::array kFacts{
    Fact{"cloud", "Drocfg", "DroBaseURL"},
    Fact{"connected", "JorvagentCfg", "jorv_agent_connected"},
    Fact{"registered", "DROStatus", "addJorvdeviceIdDone"},
    Fact{"claimed", "DroCfg", "claimState"},
};
// Values about the agent; left over from the last run when none is running.
constexpr Fact kVersion{"version", "DalModuleVersion", "DroagentVersion"};
constexpr std::array kPorts{
    Fact{"messages at", "JorvagentCfg", "jorv_handler_1023"},
    Fact{"events at", "JorvagentCfg", "jorv_handler_event_sink_1023"},
};

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Whether the agent runs: HAB_OK or HAB_SHUTDOWN, HAB_ERROR when it cannot be determined.
struct Standing {
    int status;
    std::string text;
    std::string process = {};  // its folder in /proc
};

void say(const char* label, const std::string& text) {
    std::printf("%-12s %s\n", label, text.c_str());
}

Standing agentStanding() {
    const auto unreadable = [] { return Standing{HAB_ERROR, std::string(kPidFile) + ": " + std::strerror(errno)}; };
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(kPidFile, "re"));
    if (!file) {
        return errno == ENOENT ? Standing{HAB_SHUTDOWN, "not running"} : unreadable();
    }
    // The agent holds a write lock on the file as long as it lives. A pid alone may belong to another program by now.
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(fileno(file.get()), F_GETLK, &lock) != 0) {
        return unreadable();
    }
    if (lock.l_type == F_UNLCK) {
        return {HAB_SHUTDOWN, std::string("not running; ") + kPidFile + " is left of one that was killed"};
    }
    const std::string pid = std::to_string(lock.l_pid);
    return {HAB_OK, "running, pid " + pid, "/proc/" + pid};
}

// Returns the inodes of the process's listening TCP sockets by port.
std::map<int, std::string> listeningSockets(const std::string& process) {
    constexpr const char* kListening = "0A";
    std::map<int, std::string> sockets;
    std::ifstream table(process + "/net/tcp");
    std::string line;
    std::getline(table, line);  // header line
    while (std::getline(table, line)) {
        std::istringstream words(line);
        std::string number, local, remote, state, queues, timer, retries, user, timeout, inode;
        words >> number >> local >> remote >> state >> queues >> timer >> retries >> user >> timeout >> inode;
        int port = 0;
        std::from_chars(local.data() + local.find(':') + 1, local.data() + local.size(), port, 16);
        if (state == kListening) {
            sockets[port] = inode;
        }
    }
    return sockets;
}

std::set<std::string> openSockets(const std::string& process) {
    std::set<std::string> sockets;
    for (const auto& file : std::filesystem::directory_iterator(process + "/fd")) {
        std::error_code closedMeanwhile;
        sockets.insert(std::filesystem::read_symlink(file, closedMeanwhile).string());
    }
    return sockets;
}

// True when the agent itself listens at "host:port". Another program may have the port that the store lists.
bool listens(const std::string& process, const std::string& address) {
    int port = 0;
    std::from_chars(address.data() + address.find(':') + 1, address.data() + address.size(), port);
    const auto listening = listeningSockets(process);
    const auto socket = listening.find(port);
    return socket != listening.end() && openSockets(process).contains("socket:[" + socket->second + "]");
}

// Thrown with the status, already reported on standard error, when the store does not have the value.
struct Unreadable {
    int status;
};
std::string valueOf(hab_session* session, const Fact& fact) {
    std::array<char, HAB_HOST_TEXT_SIZE> value{};
    const int status = hab_host_get_text(session, fact.table, 0, fact.field, value.data(), value.size());
    if (status != HAB_OK) {
        throw Unreadable{complain(status, std::string(fact.table) + "." + fact.field)};
    }
    return value.data();
}

// Prints the agent's ports. Returns true when it listens on all of them.
bool sayPorts(hab_session* session, const std::string& process) {
    bool ready = true;
    for (const Fact& port : kPorts) {
        const std::string address = valueOf(session, port);
        const bool listening = listens(process, address);
        say(port.label, address + (listening ? "" : " (does not listen)"));
        ready = ready && listening;
    }
    return ready;
}

}  // namespace

int status() {
    const Session session(hab_init());
    if (!session) {
        return HAB_ERROR;
    }
    try {
        const Standing agent = agentStanding();
        say("agent", agent.text);
        for (const Fact& fact : kFacts) {
            say(fact.label, valueOf(session.get(), fact));
        }
        if (agent.status != HAB_OK) {
            std::fprintf(stderr, "habctl: agent: %s\n", agent.text.c_str());
            return agent.status;
        }
        say(kVersion.label, valueOf(session.get(), kVersion));
        if (!sayPorts(session.get(), agent.process)) {
            std::fprintf(stderr, "habctl: agent: it runs but takes no messages\n");
            return HAB_TIMEOUT;
        }
        return HAB_OK;
    } catch (const Unreadable& value) {
        return value.status;
    }
}

}  // namespace habctl

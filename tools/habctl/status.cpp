#include <algorithm>
#include <array>
#include <charconv>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "agent_process.h"
#include "commands.h"

namespace habctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNoNotices = 10;                         // exit status in addition to those of the store
constexpr std::chrono::milliseconds kCheckPause{100};  // between the checks of a wait
constexpr std::chrono::seconds kProbePatience{2};

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
// Values that the agent writes. They are out of date when it is not running.
constexpr Fact kVersion{"version", "DalModuleVersion", "DroagentVersion"};
constexpr std::array kPorts{
    Fact{"messages at", "JorvagentCfg", "jorv_handler_1023"},
    Fact{"events at", "JorvagentCfg", "jorv_handler_event_sink_1023"},
};

// The agent clears this flag when it has handled the notice of its change.
constexpr Fact kProbe{"", "dalLogCfg", "DroagentConfigurationApply"};

// `status` is HAB_OK when the agent runs, HAB_SHUTDOWN when it does not, HAB_ERROR when this cannot be determined.
struct AgentState {
    int status;
    std::string text;
    std::string process = {};  // its folder in /proc
};

AgentState agentState() {
    const tools::AgentProcess agent = tools::agentProcess();
    switch (agent.state) {
        case tools::AgentProcess::absent:
            return {HAB_SHUTDOWN, "not running"};
        case tools::AgentProcess::killed:
            return {HAB_SHUTDOWN, std::string("not running; ") + tools::kPidFile + " was left by a killed agent"};
        case tools::AgentProcess::unreadable:
            return {HAB_ERROR, std::string(tools::kPidFile) + ": " + std::strerror(agent.error)};
        case tools::AgentProcess::running:
            break;
    }
    const std::string pid = std::to_string(agent.id);
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
    std::error_code failure;
    const std::filesystem::directory_iterator files(process + "/fd", failure);
    if (failure && failure != std::errc::no_such_file_or_directory) {  // the agent has exited meanwhile
        throw std::filesystem::filesystem_error("cannot read the agent's sockets", process, failure);
    }
    for (const auto& file : files) {
        std::error_code closedMeanwhile;
        sockets.insert(std::filesystem::read_symlink(file, closedMeanwhile).string());
    }
    return sockets;
}

// True when the agent itself listens at "host:port". A different program may have opened the port in the store.
bool listens(const std::string& process, const std::string& address) {
    int port = 0;
    std::from_chars(address.data() + address.find(':') + 1, address.data() + address.size(), port);
    const auto listening = listeningSockets(process);
    const auto socket = listening.find(port);
    return socket != listening.end() && openSockets(process).contains("socket:[" + socket->second + "]");
}

// Thrown when a value cannot be read. `status` has already been reported on standard error.
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

// The complete report. It is collected before anything is printed.
struct Report {
    int status = HAB_OK;
    std::string failure = {};
    std::vector<std::pair<const char*, std::string>> lines = {};
};

Report reportOn(hab_session* session) {
    const AgentState agent = agentState();
    Report report{.status = agent.status, .failure = agent.text, .lines = {{"agent", agent.text}}};
    for (const Fact& fact : kFacts) {
        report.lines.emplace_back(fact.label, valueOf(session, fact));
    }
    if (agent.status != HAB_OK) {
        return report;
    }
    report.lines.emplace_back(kVersion.label, valueOf(session, kVersion));
    for (const Fact& port : kPorts) {
        const std::string address = valueOf(session, port);
        const bool listening = listens(agent.process, address);
        report.lines.emplace_back(port.label, address + (listening ? "" : " (does not listen)"));
        if (!listening) {
            report.status = HAB_TIMEOUT;
            report.failure = "running, but does not accept messages";
        }
    }
    return report;
}

// The agent's answer to a probe.
struct Answer {
    hab_session* session;
    std::mutex mutex;
    std::condition_variable arrived;
    bool here = false;
};

void onNotice(const char* /*table*/, int /*row*/, const char* field, void* context) {
    auto* answer = static_cast<Answer*>(context);
    bool asked = true;
    if (std::string_view(field) == kProbe.field &&
        hab_get_bool(answer->session, kProbe.table, 0, kProbe.field, &asked) == HAB_OK && !asked) {
        const std::lock_guard lock(answer->mutex);
        answer->here = true;
        answer->arrived.notify_all();
    }
}

// Sets the reload flag, which the agent clears when it receives the notice of the change. Returns true when the flag is
// cleared before `deadline`. Otherwise it remains set, as a request that the agent has not handled.
bool answersProbe(Clock::time_point deadline) {
    // Declared before the session: a notice may still be handled while the session closes.
    static Answer answer{};
    static const Session session(hab_init());
    answer.session = session.get();
    int status = hab_subscribe_cb(session.get(), onNotice, &answer);
    status = status == HAB_OK ? hab_subscribe(session.get(), kProbe.table, 1) : status;
    status = status == HAB_OK ? hab_set_bool(session.get(), kProbe.table, 0, kProbe.field, true) : status;
    if (complain(status, std::string(kProbe.table) + "." + kProbe.field) != HAB_OK) {
        throw Unreadable{status};
    }
    std::unique_lock lock(answer.mutex);
    return answer.arrived.wait_until(lock, deadline, [] { return answer.here; });
}

void probe(Report& report, Clock::time_point deadline) {
    const bool answered = answersProbe(std::max(deadline, Clock::now() + kProbePatience));
    report.lines.emplace_back("notices", answered ? "received" : "not received");
    if (!answered) {
        report.status = kNoNotices;
        report.failure = "accepts messages, but receives no notices";
    }
}

}  // namespace

int status(std::chrono::seconds patience, bool probed) {
    const Session session(hab_init());
    if (!session) {
        return HAB_ERROR;
    }
    try {
        const auto deadline = Clock::now() + patience;
        Report report = reportOn(session.get());
        while (report.status != HAB_OK && Clock::now() < deadline) {
            std::this_thread::sleep_until(std::min(deadline, Clock::now() + kCheckPause));
            report = reportOn(session.get());
        }
        if (probed && report.status == HAB_OK) {
            probe(report, deadline);
        }
        for (const auto& [label, text] : report.lines) {
            std::printf("%-12s %s\n", label, text.c_str());
        }
        if (report.status != HAB_OK) {
            std::fprintf(stderr, "habctl: agent: %s\n", report.failure.c_str());
        }
        return report.status;
    } catch (const Unreadable& value) {
        return value.status;
    }
}

}  // namespace habctl

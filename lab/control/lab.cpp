#include "lab.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "lab_provisioning.h"
#include "program_folder.h"
#include "store_fields.h"

namespace lab {

namespace {

constexpr const char* kSerial = "LAB000000000001";
constexpr const char* kHost = provisioning::kNonProductionMarkers.front();
constexpr const char* kPidFile = "/tmp/droagent.pid";
constexpr std::chrono::seconds kStartPatience{20};  // three link attempts, five seconds apart, plus a margin

std::string makeStore(const LabSettings& settings, const std::filesystem::path& folder) {
    std::string path = settings.storePath.empty() ? (folder / "hab.db").string() : settings.storePath;
    if (std::filesystem::exists(path)) {
        throw std::runtime_error(path + " exists; remove it or choose another store");
    }
    createStore(path);
    ::setenv("HAB_STORE", path.c_str(), 1);
    return path;
}

void fillIn(Store& store, const std::string& baseUrl) {
    store.set({{field::General::FSN, kSerial},
               {field::General::DeviceModel, "LAB-R1"},
               {field::General::DeviceName, "Lab router"},
               {field::General::FwRevision, "1.0.0-lab"},
               {field::General::DefaultMAC, "02:00:5E:FF:53:00"},
               {field::Drocfg::DroBaseURL, baseUrl},
               {field::dalLogCfg::DroagentLogMask, "7"},
               {field::DroStatus::cdilSupport, "true"},
               {field::DroStatus::dispatcherSupport, "true"},
               {field::DroStatus::BSTSupport, "true"}});
}

std::string lastLineOf(const std::string& path) {
    std::ifstream file(path);
    std::string last;
    for (std::string line; std::getline(file, line);) {
        last = line;
    }
    return last;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "drolab-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot create a folder for the lab in " + name);
    }
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Lab::Lab(Timeline& timelineToUse, const LabSettings& settings)
    : storePath_(makeStore(settings, folder_.path())),
      verbose_(settings.verbose),
      timeline(timelineToUse),
      cloud(timeline, record, kSerial, settings.caBundle),
      population(store),
      devices(timeline, population),
      circle(timeline),
      connector(timeline),
      story_(timeline),
      agent(timeline) {
    fillIn(store, cloud.baseUrl(kHost));
    population.resize(settings.devices);
    connector.identify();
}

Lab::~Lab() = default;

std::chrono::milliseconds Lab::startAgent(const std::string& program,
                                          const std::map<std::string, std::string>& environment) {
    const auto begin = std::chrono::steady_clock::now();
    timeline.note(Actor::Lab, "starts " + program);
    Store watching;
    const bool listening = watching.awaitWrite(
        field::JorvagentCfg::jorv_handler_1023,
        [&] {
            agent.start({besideUs(program), logFile(), verbose_, environment});
        },
        kStartPatience);
    if (!listening) {
        throw std::runtime_error(program + " did not open its message port; its last line: " + lastLineOf(logFile()));
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

void Lab::registerAgain() {
    timeline.note(Actor::Lab, "router marked as unregistered; the connector reports again");
    store.set(field::DROStatus::addJorvdeviceIdDone, "false");
    connector.nudge();
}

std::string inTheWay() {
    std::ifstream file(kPidFile);
    pid_t pid = 0;
    if (file >> pid && ::kill(pid, 0) == 0) {
        return "an agent is already running (process " + std::to_string(pid) + "); stop it with: kill -USR1 " +
               std::to_string(pid);
    }
    for (const int port : {4466, 4455}) {
        if (isListening(port)) {
            return "port " + std::to_string(port) + ", which the agent needs, is in use";
        }
    }
    return {};
}

}  // namespace lab

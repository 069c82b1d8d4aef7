// lab.h - the whole lab: a fresh store, the cloud, the router's services and the agent between them.
#pragma once

#include <filesystem>
#include <string>

#include "agent_process.h"
#include "circle_agent.h"
#include "cloud_record.h"
#include "cloud_server.h"
#include "connector.h"
#include "device_service.h"
#include "lab_provisioning.h"
#include "population.h"
#include "store.h"
#include "store_story.h"
#include "timeline.h"

namespace lab {

struct LabSettings {
    std::string storePath;  // empty for one in a temporary folder
    int devices = 12;
    bool verbose = false;  // the agent's log lines in the timeline
    std::string caBundle = provisioning::kCaBundle;
};

// A folder of its own that goes away with its owner.
class TemporaryFolder {
 public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

 private:
    std::filesystem::path path_;
};

// Made and destroyed by one thread, which also starts and stops the agent; the parts may be used by any.
class Lab {
 public:
    // Makes the store file (HAB_STORE is set to it) and fills in the router, then opens everything but the agent.
    // Throws std::runtime_error, also when the store file exists already.
    Lab(Timeline& timeline, const LabSettings& settings);
    ~Lab();
    Lab(const Lab&) = delete;
    Lab& operator=(const Lab&) = delete;

    // Starts the binary of that name beside this program and waits until it takes messages. Returns how long that took.
    // Throws std::runtime_error.
    std::chrono::milliseconds startAgent(const std::string& program,
                                         const std::map<std::string, std::string>& environment = {});

    // Makes the router unregistered and the connector report once more, so that the agent asks the cloud again.
    void registerAgain();

    std::string logFile() const { return (folder_.path() / "droagent.log").string(); }
    const std::string& storePath() const { return storePath_; }

 private:
    TemporaryFolder folder_;
    const std::string storePath_;
    const bool verbose_;

 public:
    Timeline& timeline;
    Store store;
    CloudRecord record;
    CloudServer cloud;
    Population population;
    DeviceService devices;
    CircleAgent circle;
    Connector connector;

 private:
    StoreStory story_;

 public:
    AgentProcess agent;
};

// What keeps an agent from running on this host: another one, or somebody on its ports. Empty when nothing does.
std::string inTheWay();

}  // namespace lab

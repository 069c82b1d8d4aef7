// lab.h - the complete lab: a new store, the cloud, the router's services and the agent.
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
    std::string storePath;  // empty: a store in a temporary folder
    int devices = 12;
    bool verbose = false;  // show the agent's log lines in the timeline
    std::string caBundle = provisioning::kCaBundle;
};

// A temporary folder, removed with its object.
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

// Created and destroyed by one thread, which also starts and stops the agent. Any thread may use the parts.
class Lab {
 public:
    // Creates the store file, sets HAB_STORE to it, writes the router's values and starts everything except the agent.
    // Throws std::runtime_error, also when the store file already exists.
    Lab(Timeline& timeline, const LabSettings& settings);
    ~Lab();
    Lab(const Lab&) = delete;
    Lab& operator=(const Lab&) = delete;

    // Starts the named binary from this program's folder and waits until it accepts messages. Returns the start-up
    // time. Throws std::runtime_error.
    std::chrono::milliseconds startAgent(const std::string& program,
                                         const std::map<std::string, std::string>& environment = {});

    // Marks the router as unregistered and repeats the connector's report, so the agent registers again.
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

// Returns why no agent can run on this host: one is already running, or a port is in use. Empty when an agent can run.
std::string inTheWay();

}  // namespace lab

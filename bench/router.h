// router.h - the router for the measurements: a store with devices, a cloud, the shipped agent, and the services around
// it. The program runs in its own namespaces (tests/isolated).
#pragma once

#include <test_agent.h>
#include <test_cloud.h>
#include <test_store.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "floor/bare_post.h"
#include "floor/bare_store.h"
#include "measure.h"
#include "population.h"

namespace bench {

// How long a road waits between samples for the agent to be idle again.
inline constexpr std::chrono::milliseconds kSettle{4};

// A claimed, registered router with every feature, 256 devices and the log levels of a shipped one.
struct Router {
    Router();

    // For the bench's own writes and for all that stands beside the agent.
    hab_session* session() const { return mySession.get(); }
    // The bare request to the cloud's `path`.
    BarePost bare_post(const std::string& path) const;

    dro_test::TestStore store;
    dro_test::TestCloud cloud;
    dro_test::Session mySession;
    BareStore bare;  // as many values as the store has
};

// The shipped agent on that router, its link open. Ended with SIGUSR1.
class RunningAgent {
 public:
    explicit RunningAgent(const Router& router);
    RunningAgent(const RunningAgent&) = delete;
    RunningAgent& operator=(const RunningAgent&) = delete;
    ~RunningAgent();

    pid_t pid() const { return process_.pid(); }

 private:
    dro_test::AgentProcess process_;
};

// Times at which writes to some tables were noticed, from its making on. Its thread is the session's own, so the times
// include a notice's way (as storeNotice of store_bench measures it).
class Notices {
 public:
    explicit Notices(std::initializer_list<const char*> tables);
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;
    ~Notices();

    void forget();
    // The time of the `count`th notice of "TABLE.FIELD" since forget(). Throws std::runtime_error when it does not
    // come.
    Clock::time_point wait_for(const std::string& field, std::size_t count = 1) const;

    struct State;

 private:
    State* state_;
    dro_test::Session session_;
};

// The router's device service, as far as lists go: on a request it hands over the first `devices` rows. The router
// outlives it.
class DeviceService {
 public:
    DeviceService(Router& router, int devices);
    DeviceService(const DeviceService&) = delete;
    DeviceService& operator=(const DeviceService&) = delete;
    ~DeviceService();

    // Hands over as if asked, `times` times in one step.
    void hand_over(int times = 1) const;

    struct State;

 private:
    State* state_;
    dro_test::Session session_;
};

// The requests to `path` once there are `count`. Throws std::runtime_error when fewer come.
std::vector<dro_test::Request> arrived(const dro_test::TestCloud& cloud, std::size_t count, const std::string& path);

// Hands `message` to the agent as the connector does; the time is right after the connection was closed.
Clock::time_point deliver(const std::string& message);
// A command with its transaction, `data` as JSON text.
std::string command(const std::string& uuid, const std::string& name, const std::string& data);
// A command of the usual kind: one device is to be blocked.
std::string block_command(int number);

// A program in the agent's place: started, watched and ended like it.
dro_test::Launch program_launch(const std::string& program, const std::vector<std::string>& arguments);

void write_uint(const Router& router, const char* table, const char* field, std::uint32_t value);

// Waits until `port` accepts; the time at which it did.
Clock::time_point wait_for_port(int port);

// Reads one device's record, and what else the agent reads for an event or a list, with one statement per value.
void read_record_bare(BareStore& bare, int row);
// The same with one statement per table.
void read_record_whole(BareStore& bare, int row);

// The file of certificates that the agent trusts here.
const char* ca_bundle();

}  // namespace bench

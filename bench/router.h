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

// Pause between samples, for the agent to become idle.
inline constexpr std::chrono::milliseconds kSettle{4};

// A claimed, registered router with every feature, 256 devices and a shipped router's log levels.
struct Router {
    Router();

    // For the bench's own writes and for the simulated services.
    hab_session* session() const { return mySession.get(); }
    // Returns the floor's request to the cloud's `path`.
    BarePost bare_post(const std::string& path) const;

    dro_test::TestStore store;
    dro_test::TestCloud cloud;
    dro_test::Session mySession;
    BareStore bare;  // with the same number of values as the store
};

// The shipped agent on that router, with its link open. Stopped with SIGUSR1.
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

// Records the times of notices from some tables, from its construction on. The times are taken on the session's
// delivery thread, so they include the latency of a notice (measured by storeNotice in store_bench).
class Notices {
 public:
    explicit Notices(std::initializer_list<const char*> tables);
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;
    ~Notices();

    void forget();
    // Returns the time of notice number `count` of "TABLE.FIELD" since forget(). Throws std::runtime_error when it does
    // not arrive.
    Clock::time_point wait_for(const std::string& field, std::size_t count = 1) const;

    struct State;

 private:
    State* state_;
    dro_test::Session session_;
};

// Simulates the device service for lists: answers a request with the first `devices` rows. The router must outlive it.
class DeviceService {
 public:
    DeviceService(Router& router, int devices);
    DeviceService(const DeviceService&) = delete;
    DeviceService& operator=(const DeviceService&) = delete;
    ~DeviceService();

    // Announces a list as if requested, `times` times in one transaction.
    void hand_over(int times = 1) const;

    struct State;

 private:
    State* state_;
    dro_test::Session session_;
};

// Waits for `count` requests to `path` and returns them. Throws std::runtime_error when fewer arrive.
std::vector<dro_test::Request> arrived(const dro_test::TestCloud& cloud, std::size_t count, const std::string& path);

// Delivers `message` to the agent as the connector does. Returns the time after the connection is closed.
Clock::time_point deliver(const std::string& message);
// Returns a command with its transaction id and `data`, which is JSON text.
std::string command(const std::string& uuid, const std::string& name, const std::string& data);
// Returns a typical command, which blocks one device.
std::string block_command(int number);

// A program that is started, observed and stopped like the agent.
dro_test::Launch program_launch(const std::string& program, const std::vector<std::string>& arguments);

void write_uint(const Router& router, const char* table, const char* field, std::uint32_t value);

// Waits until `port` accepts a connection. Returns the time.
Clock::time_point wait_for_port(int port);

// Reads one device's record and the agent's other values for an event or a list, with one statement per value.
void read_record_bare(BareStore& bare, int row);
// The same with one statement per table.
void read_record_whole(BareStore& bare, int row);

// Returns the path of the bundle that the agent trusts here.
const char* ca_bundle();

}  // namespace bench

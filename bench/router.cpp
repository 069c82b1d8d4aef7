#include "router.h"

#include <agent_test.h>
#include <unistd.h>
#include <wait.h>

#include <array>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "provisioning.h"

namespace bench {
namespace {

// Members of a record. In the bare store, a member's field is its number here.
constexpr int kRecordMembers = 18;

// The masks and the count of the first `devices` rows, and `times` times the status that announces them.
Values list_of(int devices, int times) {
    constexpr int kMaskBits = 32;
    Values values;
    for (int mask = 0; mask < kDevices / kMaskBits; ++mask) {
        std::uint32_t bits = 0;
        for (int bit = 0; bit < kMaskBits && mask * kMaskBits + bit < devices; ++bit) {
            bits |= std::uint32_t{1} << bit;
        }
        values.emplace_back("DALHNotifyCDIL.IndexBitMask" + std::to_string(mask), std::to_string(bits));
    }
    values.emplace_back("DALHNotifyCDIL.TotalIndexcount", std::to_string(devices));
    values.insert(values.end(), static_cast<std::size_t>(times), {"DALHNotifyCDIL.CDILstatus", "complete"});
    return values;
}

// State that a running notice may still use after its session is destroyed. Never freed.
template <typename State>
State* kept() {
    static auto& all = *std::make_unique<std::vector<std::unique_ptr<State>>>().release();
    return all.emplace_back(std::make_unique<State>()).get();
}

void subscribe(hab_session* session, const char* table) {
    if (hab_subscribe(session, table, 1) != HAB_OK) {
        throw std::runtime_error(std::string("no notices of ") + table);
    }
}

}  // namespace

Router::Router() : bare(store.folder() + "/bare.db") {
    unsetenv("https_proxy");
    dro_test::set_identity(store);
    store.set_all({{"Drocfg.DroBaseURL", cloud.base_url()},
                   {"dalLogCfg.DroagentLogMask", "6"},
                   {"JorvagentCfg.jorv_agent_registered", "1"},
                   {"DROStatus.addJorvdeviceIdDone", "true"},
                   {"DroCfg.claimState", "true"},
                   {"DroStatus.cdilSupport", "true"},
                   {"DroStatus.dispatcherSupport", "true"},
                   {"DroStatus.BSTSupport", "true"},
                   {"CircleCfg.cuuid", "circle-device-1"}});
    store.set_all(population());
    mySession.reset(hab_init());
    for (int row = 0; row < kDevices; ++row) {
        for (int member = 0; member < kRecordMembers; ++member) {
            bare.write(member, row, of_row("Living room speaker #", row));
        }
    }
}

BarePost Router::bare_post(const std::string& path) const {
    return {cloud.base_url() + path, ca_bundle()};
}

RunningAgent::RunningAgent(const Router& router) : process_(router.store) {
    wait_for_port(dro_test::kEventPort);
    wait_for_port(dro_test::kNotificationPort);
    std::this_thread::sleep_for(kSettle);
}

RunningAgent::~RunningAgent() {
    process_.signal(SIGUSR1);
    process_.wait_exit();
}

struct Notices::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<std::string, Clock::time_point>> seen;
    std::string
        awaited;  // only this field wakes the waiting thread; other notices would take processor time from the agent

    static void on_notice(const char* table, int /*row*/, const char* field, void* self) {
        const auto now = Clock::now();
        auto& state = *static_cast<State*>(self);
        const std::lock_guard lock(state.mutex);
        const auto& [name, at] = state.seen.emplace_back(std::string(table) + "." + field, now);
        if (name == state.awaited) {
            state.changed.notify_all();
        }
    }
};

Notices::Notices(std::initializer_list<const char*> tables) : state_(kept<State>()), session_(hab_init()) {
    hab_subscribe_cb(session_.get(), State::on_notice, state_);
    for (const char* table : tables) {
        subscribe(session_.get(), table);
    }
}

Notices::~Notices() = default;

void Notices::forget() {
    const std::lock_guard lock(state_->mutex);
    state_->seen.clear();
}

Clock::time_point Notices::wait_for(const std::string& field, std::size_t count) const {
    Clock::time_point time;
    const auto there = [&] {
        std::size_t found = 0;
        for (const auto& [name, at] : state_->seen) {
            if (name == field && ++found == count) {
                time = at;
                return true;
            }
        }
        return false;
    };
    std::unique_lock lock(state_->mutex);
    state_->awaited = field;
    if (!state_->changed.wait_for(lock, dro_test::kPatience, there)) {
        throw std::runtime_error(field + " was not written");
    }
    return time;
}

struct DeviceService::State {
    dro_test::TestStore* store = nullptr;
    int devices = 0;
    hab_session* session = nullptr;

    static void on_notice(const char* /*table*/, int /*row*/, const char* field, void* self) {
        constexpr std::uint32_t kListFeature = 8;
        const auto& state = *static_cast<State*>(self);
        std::uint32_t process = 0;
        std::uint32_t feature = 0;
        if (std::string_view(field) == "ProcessID" &&
            hab_get_uint(state.session, "DALHConfig", 0, "ProcessID", &process) == HAB_OK && process == 1 &&
            hab_get_uint(state.session, "DALHConfig", 0, "FeatureID", &feature) == HAB_OK && feature == kListFeature) {
            state.store->set_all(list_of(state.devices, 1));
        }
    }
};

DeviceService::DeviceService(Router& router, int devices) : state_(kept<State>()), session_(hab_init()) {
    state_->store = &router.store;
    state_->devices = devices;
    state_->session = session_.get();
    hab_subscribe_cb(session_.get(), State::on_notice, state_);
    subscribe(session_.get(), "DALHConfig");
}

DeviceService::~DeviceService() = default;

void DeviceService::hand_over(int times) const {
    state_->store->set_all(list_of(state_->devices, times));
}

std::vector<dro_test::Request> arrived(const dro_test::TestCloud& cloud, std::size_t count, const std::string& path) {
    auto requests = cloud.wait_for(count, path);
    if (requests.size() < count) {
        throw std::runtime_error(std::to_string(requests.size()) + " of " + std::to_string(count) + " requests to " +
                                 path);
    }
    return requests;
}

Clock::time_point deliver(const std::string& message) {
    if (!dro_test::send_message(dro_test::kNotificationPort, message)) {
        throw std::runtime_error("the agent accepted no message");
    }
    return Clock::now();
}

std::string command(const std::string& uuid, const std::string& name, const std::string& data) {
    return R"({"UUID":")" + uuid + R"(","cmd":")" + name + R"(","data":)" + data + "}";
}

std::string block_command(int number) {
    return command("block-" + std::to_string(number), "BLOCK_CD", R"({"cdMac":"02:00:5E:00:53:01"})");
}

dro_test::Launch program_launch(const std::string& program, const std::vector<std::string>& arguments) {
    dro_test::Launch launch;
    launch.before = [program, arguments] {
        std::vector<std::string> copies{program};
        copies.insert(copies.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        pointers.reserve(copies.size() + 1);
        for (std::string& copy : copies) {
            pointers.push_back(copy.data());
        }
        pointers.push_back(nullptr);
        execv(program.c_str(), pointers.data());
    };
    return launch;
}

void write_uint(const Router& router, const char* table, const char* field, std::uint32_t value) {
    if (hab_set_uint(router.session(), table, 0, field, value) != HAB_OK) {
        throw std::runtime_error(std::string("the store refused ") + field);
    }
}

Clock::time_point wait_for_port(int port) {
    constexpr std::chrono::microseconds kLook{100};
    const auto deadline = Clock::now() + dro_test::kPatience;
    for (;;) {
        if (const int descriptor = dro_test::connect_to(port); descriptor >= 0) {
            const auto now = Clock::now();
            close(descriptor);
            return now;
        }
        if (Clock::now() > deadline) {
            throw std::runtime_error("nothing listens on " + std::to_string(port));
        }
        std::this_thread::sleep_for(kLook);
    }
}

void read_record_bare(BareStore& bare, int row) {
    for (int member = 0; member < kRecordMembers; ++member) {
        bare.read(member, row);
    }
}

void read_record_whole(BareStore& bare, int row) {
    constexpr int kTables = 3;
    constexpr int kFields = kRecordMembers / kTables;
    for (int field = 0; field < kRecordMembers; field += kFields) {
        bare.read_row(row, field, field + kFields - 1);
    }
}

const char* ca_bundle() {
    return provisioning::kCaBundles.back();
}

}  // namespace bench

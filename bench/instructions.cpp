// instructions OPERATION COUNT - runs one operation of the agent COUNT times, in this process and without a network, so
// that bench/instructions can count instructions. One thread, except for the receiver of a message.
#include <habdynlog.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <test_store.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <semaphore>
#include <stdexcept>

#include "dro_dal.h"
#include "dro_durations.h"
#include "dro_fifo.h"
#include "dro_get_dalfld.h"
#include "dro_json.h"
#include "dro_main.h"
#include "dro_url.h"
#include "dro_utils_post.h"
#include "dro_utils_record.h"
#include "jorv_receiver.h"
#include "libJorvhdlr.h"
#include "population.h"

namespace {

void require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

// The agent's state after its start on a router with devices, with a shipped router's log levels and no pauses.
class Agent {
 public:
    Agent() {
        using std::chrono::milliseconds;
        constexpr milliseconds kNone{0};
        dro::set_durations({kNone, kNone, kNone, kNone, kNone});
        setenv("HAB_LOG_FILE", (store.folder() + "/agent.log").c_str(), 1);
        dro_test::set_identity(store);
        store.set_all({{"Drocfg.DroBaseURL", "https://qa.dro.localhost/"}, {"dalLogCfg.DroagentLogMask", "6"}});
        store.set_all(bench::population());
        dynlog_lib_init();
        set_log_level(0, "Droagent", "bench");
        require(dro::dal_init() == 0 && dro::get_hab_info() == 0 && dro::get_api_url() == 0, "no agent");
    }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;
    ~Agent() {
        dro::dal_destroy();
        dynlog_lib_uninit();
    }

    dro_test::TestStore store;
};

// The link's notification port, and a connector that has delivered its message before the link accepts it.
class Link {
 public:
    Link() : listening_(jorv::Jorv_Handler_InitNetwrksock(0)) {
        socklen_t size = sizeof address_;
        require(listening_ >= 0 && getsockname(listening_, reinterpret_cast<sockaddr*>(&address_), &size) == 0,
                "no port");
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link() { close(listening_); }

    void deliver(std::string_view message) const {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        require(connect(descriptor, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) == 0 &&
                    write(descriptor, message.data(), message.size()) == static_cast<ssize_t>(message.size()),
                "the link accepted no message");
        close(descriptor);
        require(jorv::jorvHandleSock(listening_, handle) == 0, "no receiver");
        handled_.acquire();
        while (jorv::Jorv_Handler_receivers() > 0) {
            usleep(100);  // the receiver exits, so every message meets the same threads
        }
    }

 private:
    static void handle(const char* message) {
        dro::JorvAgentNotification_cbHandler(message);
        handled_.release();
    }

    static inline std::binary_semaphore handled_{0};
    int listening_;
    sockaddr_in address_{};
};

void message(long count) {
    const Link link;
    for (long i = 0; i < count; ++i) {
        link.deliver(R"({"UUID":"0f8fad5b-d9cb-469f-a165-70867728950e","cmd":"BLOCK_CD",)"
                     R"("data":{"cdMac":"02:00:5E:00:53:01"}})");
    }
}

void record(long count) {
    for (long i = 0; i < count; ++i) {
        const dro::Json device(cJSON_CreateObject());
        dro::getConnectedDeviceData(static_cast<int>(i % bench::kDevices), device.get(), dro::kRecordNewDevice);
        const dro::JsonText text(cJSON_PrintUnformatted(device.get()));
        require(text != nullptr, "no record");
    }
}

void event(long count) {
    constexpr std::size_t kRecordSize = 500;
    const std::string payload(kRecordSize, 'x');
    for (long i = 0; i < count; ++i) {
        require(dro::enqueue_buf({"NDNEV", payload}) == 1 && dro::wait_for_event() && dro::dequeue() == 1, "no event");
    }
}

void store_read(long count) {
    std::uint32_t value = 0;
    for (long i = 0; i < count; ++i) {
        require(hab_get_uint(dro::dal_get_handle(), "DALHConfig", 0, "ProcessID", &value) == HAB_OK, "no read");
    }
}

void store_write(long count) {
    for (long i = 0; i < count; ++i) {
        require(
            hab_set_uint(dro::dal_get_handle(), "DALHConfig", 0, "ProcessID", static_cast<std::uint32_t>(i)) == HAB_OK,
            "no write");
    }
}

int run(int argc, char** argv) {
    const std::map<std::string, std::function<void(long)>> operations{{"message", message},
                                                                      {"record", record},
                                                                      {"event", event},
                                                                      {"storeRead", store_read},
                                                                      {"storeWrite", store_write}};
    if (argc != 3 || !operations.contains(argv[1])) {
        std::fputs("instructions OPERATION COUNT\n", stderr);
        return 1;
    }
    const Agent agent;
    operations.at(argv[1])(std::strtol(argv[2], nullptr, 10));
    return 0;
}

}  // namespace

namespace dro {

std::size_t curl_post(const char* /*url*/, const char* body, std::optional<std::string>& response, long* httpStatus) {
    require(*body != '\0', "an empty request");
    response = R"({"status":1})";
    if (httpStatus != nullptr) {
        *httpStatus = 200;
    }
    return response->size();
}

}  // namespace dro

// No notices: their thread runs at unpredictable times, and its instructions would be counted.
extern "C" int hab_subscribe_cb(hab_session* /*session*/, hab_notice_handler /*handler*/, void* /*context*/) {
    return HAB_OK;
}

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "instructions: %s\n", failure.what());
        return 1;
    }
}

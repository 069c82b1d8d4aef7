#include "agent_test.h"

#include <cstdlib>

#include "dro_dal.h"
#include "dro_dispatcher.h"
#include "dro_fifo.h"
#include "dro_get_dalfld.h"
#include "dro_json.h"
#include "dro_log.h"
#include "dro_monitor.h"
#include "dro_stop.h"
#include "dro_url.h"

namespace dro_test {

std::string json_value(const std::string& body, const std::string& name) {
    const dro::Json parsed(cJSON_Parse(body.c_str()));
    const cJSON* member = dro::json_member(parsed.get(), name.c_str());
    if (const char* text = cJSON_GetStringValue(member)) {
        return text;
    }
    const dro::JsonText printed(member != nullptr ? cJSON_PrintUnformatted(member) : nullptr);
    return printed ? printed.get() : "";
}

dro::Durations short_durations() {
    using std::chrono::milliseconds;
    dro::Durations durations;
    durations.retryPause = milliseconds(30);
    durations.unknownEvent = milliseconds(30);
    durations.queuePause = milliseconds(0);
    return durations;
}

AgentTest::AgentTest() : log(store.folder() + "/agent.log") {
    unsetenv("https_proxy");
    setenv("HAB_LOG_FILE", log.path().c_str(), 1);
    set_identity(store);
    store.set("Drocfg.DroBaseURL", cloud.base_url());
    dynlog_lib_init();
    set_log_level(0, "Droagent", "test");
    dro::set_durations(short_durations());
    start_agent();
}

AgentTest::~AgentTest() {
    cloud.release();
    dro::request_stop();
    dro::stop_monitors();
    store.set("DroStatus.dispatcherSupport", "true");  // without it a running dispatcher would not be ended
    dro::cancel_dispatcher_thread();
    dro::wait_for_monitors(kPatience);
    dro::dal_destroy();
    dro::ClearQueue();
    dro::wake_dispatcher(false);
    dro::allow_monitors();
    dro::clear_stop();
    dynlog_lib_uninit();
}

void AgentTest::start_agent() {
    if (dro::dal_get_handle() != nullptr) {
        dro::dal_destroy();
    }
    EXPECT_EQ(dro::dal_init(), 0);
    dro::get_hab_info();
    EXPECT_EQ(dro::get_api_url(), 0);
}

void AgentTest::forget() {
    log.forget();
    cloud.forget();
}

Request AgentTest::only_request() const {
    const auto all = cloud.requests();
    EXPECT_EQ(all.size(), 1U);
    return all.size() == 1 ? all.front() : Request{};
}

std::string AgentTest::envelope(const std::string& uuid, const std::string& command, const std::string& data) {
    const std::string rest = data.empty() ? "" : R"(,"data":)" + data;
    return R"({"UUID":")" + uuid + R"(","cmd":")" + command + "\"" + rest + "}";
}

std::vector<std::string> AgentTest::acknowledgements(std::size_t count) const {
    std::vector<std::string> all;
    for (const Request& request : cloud.wait_for(count, "transactionAck/")) {
        all.push_back(json_value(request.body, "transactionId") + " " + json_value(request.body, "transactionStatus") +
                      " " + json_value(request.body, "failureReason"));
    }
    return all;
}

}  // namespace dro_test

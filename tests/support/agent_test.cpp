#include "agent_test.h"

#include <cstdlib>

#include "agent_probe.h"
#include "dro_dal.h"
#include "dro_dispatcher.h"
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
    const char* text = cJSON_GetStringValue(member);
    const dro::JsonText printed(cJSON_PrintUnformatted(member));
    return text != nullptr ? text : printed ? printed.get() : "";
}

AgentTest::AgentTest() : log(store.folder() + "/agent.log") {
    unsetenv("https_proxy");
    setenv("HAB_LOG_FILE", log.path().c_str(), 1);
    set_identity(store);
    store.set("Drocfg.DroBaseURL", cloud.base_url());
    dynlog_lib_init();
    set_log_level(0, "Droagent", "test");
    durations.retryPause = durations.unknownEvent = std::chrono::milliseconds(30);
    durations.queuePause = std::chrono::milliseconds(0);
    dro::set_durations(durations);
    dro::InitQueue();
    start_agent();
}

AgentTest::~AgentTest() {
    cloud.release();
    dro::request_stop();
    dro::stop_monitors();
    store.set("DroStatus.dispatcherSupport", "true");  // without it, a running dispatcher would not be cancelled
    dro::cancel_dispatcher_thread();
    eventually([] { return active_monitors() == 0; });
    dro::dal_destroy();
    dro::ClearQueue();
    dro::wake_dispatcher(false);
    allow_monitors();
    clear_stop();
    dynlog_lib_uninit();
}

void AgentTest::start_agent() {
    dro::dal_destroy();
    EXPECT_EQ(dro::dal_init(), 0);
    dro::get_hab_info();
    EXPECT_EQ(dro::get_api_url(), 0);
}

std::vector<std::string> AgentTest::acknowledgements(std::size_t count) const {
    std::vector<std::string> all;
    for (const Request& request : cloud.wait_for(count, "transactionAck/")) {
        all.push_back(json_value(request.body, "transactionId") + " " + json_value(request.body, "transactionStatus") +
                      " " + json_value(request.body, "failureReason"));
    }
    return all;
}

void AgentTest::expect_three_attempts(bool pauseAfterLast) const {
    const auto end = std::chrono::steady_clock::now();
    const auto pause = durations.retryPause;
    const auto requests = cloud.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].body, requests[2].body) << "one token for all";
    EXPECT_GE(requests[1].at - requests[0].at, pause);
    EXPECT_GE(requests[2].at - requests[1].at, pause);
    EXPECT_EQ(end - requests[2].at >= pause, pauseAfterLast);
}

}  // namespace dro_test

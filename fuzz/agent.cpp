#include "agent.h"

#include <habdynlog.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <utility>

#include "dro_dal.h"
#include "dro_durations.h"
#include "dro_fifo.h"
#include "dro_get_dalfld.h"
#include "dro_threads.h"
#include "dro_url.h"
#include "dro_utils_post.h"
#include "input.h"
#include "test_store.h"

namespace fuzz {
namespace {

std::deque<std::string> g_answers;
std::vector<std::function<void()>> g_started;

class Agent {
 public:
    Agent() {
        using std::chrono::milliseconds;
        constexpr milliseconds kNone{0};
        dro::set_durations({kNone, kNone, kNone, kNone, kNone});
        setenv("HAB_LOG_FILE", (store.folder() + "/agent.log").c_str(), 1);
        dro_test::set_identity(store);
        store.set("Drocfg.DroBaseURL", "https://qa.dro.localhost/");
        dynlog_lib_init();
        set_log_level(0, "Droagent", "fuzz");
        require(dro::dal_init() == 0 && dro::get_hab_info() == 0 && dro::get_api_url() == 0);
        store.keep();
    }
    ~Agent() {
        dro::dal_destroy();
        dynlog_lib_uninit();
    }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    Store store;
};

}  // namespace

Store& fresh_agent() {
    static Agent agent;
    agent.store.reset();
    dro::ClearQueue();
    g_answers.clear();
    g_started.clear();
    return agent.store;
}

void answer_next(std::string answer) {
    g_answers.push_back(std::move(answer));
}

std::vector<std::function<void()>> started_threads() {
    return std::exchange(g_started, {});
}

}  // namespace fuzz

// Replacements for the agent's functions of these names, without network, threads and process exit.
namespace dro {

std::size_t curl_post(const char* url, const char* body, std::optional<std::string>& response, long* httpStatus) {
    fuzz::require(std::strlen(url) < 256 && std::strlen(body) > 0);
    std::string answer;
    if (!fuzz::g_answers.empty()) {
        answer = std::move(fuzz::g_answers.front());
        fuzz::g_answers.pop_front();
    }
    if (httpStatus != nullptr) {
        *httpStatus = answer.empty() ? 0 : 200;
    }
    const std::size_t length = answer.size();
    if (length > 0) {
        response = std::move(answer);
    }
    return length;
}

int start_thread(pthread_t& /*thread*/, void* (* /*body*/)(void*), void* /*argument*/, bool /*detached*/) {
    std::abort();  // nothing starts the dispatcher
}

int start_detached(std::function<void()> body) {
    fuzz::g_started.push_back(std::move(body));
    return 0;
}

void end_process(int /*status*/) {
    std::abort();  // no input may stop the agent
}

}  // namespace dro

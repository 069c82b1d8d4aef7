#include "local_agent.h"

#include <habdynlog.h>

#include <cstdlib>
#include <stdexcept>

#include "dro_dal.h"
#include "dro_get_dalfld.h"
#include "dro_url.h"

namespace bench {

LocalAgent::LocalAgent(const Router& router) {
    setenv("HAB_LOG_FILE", (router.store.folder() + "/local.log").c_str(), 1);
    dynlog_lib_init();
    set_log_level(0, "Droagent", "bench");
    if (dro::dal_init() != 0 || dro::get_hab_info() != 0 || dro::get_api_url() != 0) {
        throw std::runtime_error("the agent's code could not be started here");
    }
}

LocalAgent::~LocalAgent() {
    dro::dal_destroy();
    dynlog_lib_uninit();
}

}  // namespace bench

// start_floor [URL BUNDLE] - the least that a program with the agent's libraries starts with: they are linked, a store
// session and the log are opened, and the agent's ports listen. With a URL it makes one request before. Then it waits
// to be ended.
#include <cJSON.h>
#include <curl/curl.h>
#include <habdynlog.h>
#include <hablib.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <exception>

#include "floor/bare_link.h"
#include "floor/bare_post.h"

namespace {

int run(int argc, char** argv) {
    signal(SIGUSR1, [](int) { _exit(0); });
    curl_global_init(CURL_GLOBAL_DEFAULT);
    hab_session* session = hab_init();
    std::uint32_t value = 0;
    if (session == nullptr || hab_get_uint(session, "DALHConfig", 0, "ProcessID", &value) != HAB_OK ||
        dynlog_lib_init() != 0 || cJSON_Version() == nullptr) {
        return 1;
    }
    set_log_level(0, "floor", "floor");
    if (argc == 3) {
        bench::BarePost(argv[1], argv[2]).send("{}");
    }
    bench::listen_on(4466);
    bench::listen_on(4455);
    for (;;) {
        pause();
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception&) {
        return 1;
    }
}

// The fixed start-up order, the parked main thread, and shutdown.
#include "dro_main.h"

#include <malloc.h>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "dro_circle.h"
#include "dro_daemon.h"
#include "dro_dal.h"
#include "dro_dispatcher.h"
#include "dro_durations.h"
#include "dro_fields.h"
#include "dro_get_dalfld.h"
#include "dro_get_set_config_version.h"
#include "dro_log.h"
#include "dro_monitor.h"
#include "dro_output.h"
#include "dro_places.h"
#include "dro_stop.h"
#include "dro_text.h"
#include "dro_threads.h"
#include "dro_url.h"
#include "dro_url_pipeline.h"
#include "libJorvhdlr.h"
#include "provisioning.h"

namespace dro {
namespace {

constexpr const char* kVersion = "1.3.10";
constexpr const char* kVersionField = "DroagentVersion";
constexpr const char* kModule = "Droagent";
constexpr const char* kClientName = "1023";
constexpr int kNotificationPort = 4466;
constexpr int kEventPort = 4455;
constexpr int kLastLinkTry = 2;
constexpr int kLastLinkPause = 3;

constexpr Field kLogReload{"dalLogCfg", "DroagentConfigurationApply"};

FixedText<32> __exec_binary_name;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): its known name
std::atomic<int> bShutdown{0};
sem_t shutdown_sem;
// Never assigned: the pid file's descriptor is not kept, and shutdown closes descriptor 0 instead. The next start only
// needs the file to be removed; the kernel releases the lock when the process exits.
int lfd = 0;

FixedText<64> pid_path() {
    FixedText<64> path;
    path.format("%s.pid", "/tmp/droagent");
    return path;
}

[[noreturn]] void fail_start(const char* text, const char* reason, bool alsoOnStderr) {
    LOG_ERROR("%s", text);
    if (alsoOnStderr) {
        print_stderr(text);
    }
    good_bye(reason);
    end_process(1);
}

void tolerate(bool done, const char* failureText) {
    if (!done) {
        LOG_ERROR("%s", failureText);
    }
}

// Keeps argv[0] without its first two characters: "./" for a daemon started in its own folder.
void keep_binary_name(const char* name) {
    const std::string_view text(name);
    __exec_binary_name.assign(text.substr(std::min<std::size_t>(2, text.size())));
}

int install_handler(int signal, void (*handler)(int), int flags, std::initializer_list<int> alsoMasked) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    for (const int masked : alsoMasked) {
        sigaddset(&action.sa_mask, masked);
    }
    return sigaction(signal, &action, nullptr);
}

// Handlers run only on the parked main thread, one at a time, so they may log, write to the store and join threads.
int set_up_signals() {
    if (block_signals_and_watch() != 0) {
        return -1;
    }
    int result = install_handler(SIGPIPE, SIG_IGN, SA_RESTART, {});
    if (result == 0) {
        result = install_handler(SIGUSR1, sig_usr1_handler, 0, {SIGUSR2, SIGALRM});
    }
    if (result == 0) {
        result = install_handler(SIGUSR2, sig_usr2_handler, 0, {SIGUSR1, SIGALRM});
    }
    return result;
}

void let_signals_through(bool through) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    sigaddset(&set, SIGALRM);
    pthread_sigmask(through ? SIG_UNBLOCK : SIG_BLOCK, &set, nullptr);
}

// Waits with the signals unblocked. A signal that arrives before sem_wait has posted the semaphore, so it is not lost.
void park() {
    let_signals_through(true);
    while (bShutdown == 0) {
        sem_wait(&shutdown_sem);
    }
    let_signals_through(false);
}

void on_log_reload(void* /*context*/) {
    // A store that reports every write also reports the reset below.
    if (!read_bool(kLogReload)) {
        return;
    }
    set_log_level(1, kModule, __exec_binary_name.c_str());
    write_bool(kLogReload, false);
}

void record_version() {
    tolerate(set_module_version_detail(kVersionField, kVersion) == 0, "Failed to fetch DROAGENT Module Version \n");
    LOG_TRACE("!! set_module_version_detail() is called at boot time !!\n");
}

// Three attempts, then the agent runs without a link. kLastLinkPause is greater than kLastLinkTry, so the branch that
// would stop the agent is never taken.
void open_link() {
    bool retry = true;
    for (int count = 0; retry && count <= kLastLinkTry;) {
        LOG_TRACE("Initiating Connection with libJorvhdlr\n");
        if (jorv::Jorv_Handler_init(kClientName, kNotificationPort, JorvAgentNotification_cbHandler, kEventPort,
                                    cb_test, JorvAgentStatus_cbHandler) == 0) {
            retry = false;
            continue;
        }
        LOG_ERROR("LibJorvhdlr init failed! Re-trying in 5 sec...\n");
        if (count <= kLastLinkPause) {
            pause_for(durations().retryPause);
            ++count;
        } else {
            LOG_ERROR("Deinit libJorvhdlr, Connection to libJorvhdlr library failed.Stopping Agent Here...\n");
            bShutdown = 1;
        }
    }
}

void start(char** argv) {
    sem_init(&shutdown_sem, 0, 0);
    set_places(provisioning::kThreadLimit);
    keep_binary_name(argv[0]);
    if (lock_process(pid_path().c_str()) == -1) {
        fail_start("failed to lock the pid file.\n", "LOCK_PROCESS", true);
    }
    LOG_NOTICE("droagent locked the pid file.\n");
    if (set_up_signals() != 0) {
        fail_start("Failed to setup signal handers.\n", "SIG_HDLR", true);
    }
    if (dal_init() != 0) {
        fail_start("Couldn't init HAB! is HAB running?\n", "DAL_INIT", true);
    }
    if (dynlog_lib_init() != 0) {
        fail_start("Couldn't init dynamic log library?\n", "DAL_INIT", true);
    }
    set_log_level(0, kModule, __exec_binary_name.c_str());
    LOG_TRACE("Starting droagent Version Id is %s\n", kVersion);
    tolerate(get_hab_info() == 0, "Failed to get info on startup. Will again get when get triggers\n");
    if (tv_subscribe() != 0) {
        fail_start("Failed to subscribe the log configuration\n", "TV_SUBSCRIBE", false);
    }
    record_version();
    if (get_api_url() != 0) {
        fail_start("Failed to get DroCloud Base URL\n", "DROBASE_URL", false);
    }
    tolerate(regStatus() == HAB_OK, "Failed to get Registration status\n");
    tolerate(init_devToCld_push_sync() == 0,
             "Failed to Start the device to Cloud Sync process! Possible error in DAL\n");
    tolerate(circle_cb_subscription() == 0, "Failed to Subscribe for Circle feature\n");
    open_link();
}

}  // namespace

int droagent_main(int argc, char** argv) {
    unblock_output();
    jorv::jorvPerror = print_error;
    if (argc != 1) {
        LOG_ERROR("Cannot parse args/load needed variables from cli.\n");
        print_stderr("Cannot parse args. Input valid data from cli\n");
        return -1;
    }
#ifdef M_ARENA_MAX
    // Each message and event has its own thread. With one arena per thread, each arena would keep the memory of its
    // longest list.
    mallopt(M_ARENA_MAX, 1);
#endif
    start(argv);
    park();
    jorv::Jorv_Handler_deInit();
    sem_destroy(&shutdown_sem);
    return 0;
}

void good_bye(const char* reason) {
    const std::string_view tag(reason);
    const auto is_one_of = [tag](std::initializer_list<std::string_view> tags) {
        return std::find(tags.begin(), tags.end(), tag) != tags.end();
    };
    request_stop();  // first, so no command starts while the rest is released
    stop_monitors();
    LOG_NOTICE("Bye Bye.....\n");
    const auto path = pid_path();
    if (is_one_of({"LOCK_PROCESS"})) {
        LOG_NOTICE("Exit from LOCK_PROCESS\n");
    } else if (is_one_of({"SIG_HDLR", "SIG_EXIT"})) {
        // The store session stays open: other threads are using it.
        LOG_NOTICE("Exit from SIG_HDLR\n");
        cancel_dispatcher_thread();
        dynlog_lib_uninit();
        unlock_process(path.c_str(), lfd);
    } else if (is_one_of({"DAL_INIT", "GET_INFO", "TV_SUBSCRIBE", "DROBASE_URL"})) {
        LOG_NOTICE("Exit from Internal exit\n");
        cancel_dispatcher_thread();
        dal_destroy();
        dynlog_lib_uninit();
        unlock_process(path.c_str(), lfd);
    }
    bShutdown = 1;
    sem_post(&shutdown_sem);
}

void sig_usr1_handler(int sig) {
    const int error = errno;
    LOG_TRACE("sig_usr1 handler.\n");
    if (sig == SIGUSR1 && bShutdown == 0) {
        good_bye("SIG_EXIT");
    }
    errno = error;
}

void sig_usr2_handler(int /*sig*/) {
    const int error = errno;
    LOG_TRACE("sig_usr2 handler.\n");
    errno = error;
}

int tv_subscribe() {
    on_change(kLogReload, on_log_reload);
    return 0;
}

int regStatus() {
    const Field& field = fields::jorv_agent_registered;
    LOG_TRACE("Getting Registered status from JorvagentCfg table\n");
    std::uint32_t registered = 0;
    const int status = hab_get_uint(dal_get_handle(), field.table, field.row, field.name, &registered);
    log_store_error(status);
    if (registered != 0) {
        LOG_TRACE("JorvAgent Reg is true before JorvhdlrInit, Calling JorvAgentStatus_cbHandler\n");
        JorvAgentStatus_cbHandler(1, 0, 0);
    } else {
        LOG_TRACE("regStatus is false, addJorvdeviceId will call normal registration flow\n");
    }
    return status;
}

}  // namespace dro

// The host libraries with one fault, named by BROKEN: the check that must find it, and "/" and a variant where a check
// has several. The linker's --wrap sends habconform's calls here.
#include <fcntl.h>
#include <habdynlog.h>
#include <hablib.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;

constexpr const char* kUnknown = "NoSuchFieldOfTheAgent";

bool broken(const char* fault) {
    static const std::string chosen = std::getenv("BROKEN") != nullptr ? std::getenv("BROKEN") : "";
    return chosen == fault;
}

std::atomic<int> g_started{0};  // handlers
std::atomic<int> g_finished{0};
std::atomic<bool> g_subscribed{false};
std::atomic<int> g_writers{0};
std::atomic<hab_session*> g_closed{nullptr};
thread_local bool t_inHandler = false;

// Waits longer than a check, but not until its time limit.
void awaitHandlers(int finished) {
    for (int i = 0; i < 7000 && g_finished < finished; ++i) {
        std::this_thread::sleep_for(1ms);
    }
}

struct Call {
    Call() {
        if (broken("slow")) {
            std::this_thread::sleep_for(100ms);
        }
    }
};

struct Subscription {
    hab_notice_handler handler;
    void* context;
    int session;  // in the order of their opening
};

void deliver(const Subscription& to, const char* table, int row, const char* field) {
    t_inHandler = true;
    ++g_started;
    to.handler(table, row, field, to.context);
    ++g_finished;
    t_inHandler = false;
}

// With a small stack; waits for the handler, but not for long.
void deliverOnThread(const Subscription& to, const std::string& table, int row, const std::string& field) {
    auto& done = *new std::atomic<bool>(false);
    auto* work = new std::function<void()>([&done, to, table, row, field] {
        deliver(to, table.c_str(), row, field.c_str());
        done = true;
    });
    pthread_t thread{};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, broken("notice-stack") ? DRO_THREAD_STACK / 4 : DRO_THREAD_STACK);
    const auto run = [](void* function) -> void* {
        (*static_cast<std::function<void()>*>(function))();
        return nullptr;
    };
    pthread_create(&thread, &attributes, run, work);
    pthread_detach(thread);
    for (int i = 0; i < (broken("notice-serial") ? 300 : 10'000) && !done; ++i) {
        std::this_thread::sleep_for(1ms);
    }
}

void onNotice(const char* table, int row, const char* field, void* context) {
    static std::atomic<int> notices{0};
    static std::string held;
    const auto& to = *static_cast<Subscription*>(context);
    const int count = ++notices;
    if ((broken("notice-own") && field == std::string("CircleToggle")) || (broken("notice-all/lost") && count == 37) ||
        (broken("stress") && count == 5000) || (broken("notice-sessions") && to.session == 1)) {
        return;
    }
    if (broken("notice-all/order") && count == 30) {
        held = field;
        return;
    }
    if (broken("signals/mask")) {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_UNBLOCK, &all, nullptr);
    }
    if (broken("notice-serial") || broken("notice-stack")) {
        deliverOnThread(to, table, row, field);
        return;
    }
    deliver(to, table, row, field);
    if (broken("notice-all/twice") && count == 63) {
        deliver(to, table, row, field);
    }
    if (!held.empty()) {
        deliver(to, table, row, std::exchange(held, "").c_str());
    }
}

// Returns true, with the status, when a read does not reach the library.
bool readFails(hab_session* session, const char*& table, int row, const char* field, int& status) {
    if (broken("no-session") && session == nullptr) {
        std::abort();
    }
    if (broken("names") && table == std::string("Drocfg") && field != std::string("DroBaseURL")) {
        table = "DroCfg";
    }
    status = broken("rows") && row == 255 ? HAB_NOSUCH_ITEM : HAB_OK;
    return status != HAB_OK || (broken("destroy/closed") && t_inHandler && session == g_closed);
}

// Runs `write` and returns its status.
template <typename Write>
int written(Write write) {
    const int started = g_started;
    const bool inHandlers = started != g_finished;
    if (broken("handler-writes") && t_inHandler) {
        return HAB_ERROR;
    }
    if (broken("handler-blocks") && !t_inHandler && inHandlers) {
        return HAB_TIMEOUT;
    }
    if (broken("threads")) {
        const int writers = ++g_writers;
        std::this_thread::sleep_for(5ms);
        --g_writers;
        if (writers > 3) {
            return HAB_ERROR;
        }
    }
    const int status = write();
    if (broken("notice-thread") && g_subscribed && !inHandlers) {
        awaitHandlers(started + 1);
    }
    return broken("failed-write") && status == HAB_NOSUCH_ITEM ? HAB_OK : status;
}

}  // namespace

#define PLACE hab_session *session, const char *table, int row, const char *field

// NAME's replacement runs the rest of the arguments, which call `real`.
#define REPLACE(NAME, RESULT, PARAMETERS, ...)                  \
    extern "C" RESULT __real_##NAME PARAMETERS;                 \
    extern "C" RESULT __wrap_##NAME PARAMETERS {                \
        const Call call;                                        \
        [[maybe_unused]] constexpr auto* real = &__real_##NAME; \
        __VA_ARGS__                                             \
    }

#define READ(NAME, TYPE, ...)                                  \
    REPLACE(NAME, int, (PLACE, TYPE result), {                 \
        int status = HAB_OK;                                   \
        if (!readFails(session, table, row, field, status)) {  \
            status = real(session, table, row, field, result); \
            __VA_ARGS__                                        \
        }                                                      \
        return status;                                         \
    })
#define READ_TEXT(NAME, ...)                                           \
    REPLACE(NAME, int, (PLACE, char* result, std::size_t length), {    \
        int status = HAB_OK;                                           \
        if (!readFails(session, table, row, field, status)) {          \
            status = real(session, table, row, field, result, length); \
            __VA_ARGS__                                                \
        }                                                              \
        return status;                                                 \
    })
#define WRITE(NAME, TYPE, ...)                              \
    REPLACE(NAME, int, (PLACE, TYPE value), {               \
        return written([&, given = value]() mutable {       \
            __VA_ARGS__                                     \
            return real(session, table, row, field, given); \
        });                                                 \
    })

READ_TEXT(hab_get_ascii, {
    if (broken("short-buffer") && status == HAB_TOO_LONG && length == 8) {
        std::strcpy(result, "1234567");
        status = HAB_OK;
    }
})
READ_TEXT(hab_get_string, {
    if (broken("failed-read") && field == std::string(kUnknown)) {
        std::memset(result, 'x', length);
    }
})
READ_TEXT(hab_get_enum, {})
READ(hab_get_bool, bool*, {})
READ(hab_get_int, std::int32_t*, {
    if (broken("int") && status == HAB_OK) {
        *result &= INT32_MAX;
    }
})
READ(hab_get_uint, std::uint32_t*, {
    if (broken("failed-read/number") && status != HAB_OK) {
        *result = 0;
    }
})
READ(hab_get_ipv4, std::uint8_t*, { status = broken("fields") && row == 0 ? HAB_WRONG_TYPE : status; })
READ(hab_get_mac, std::uint8_t*, {
    if (broken("notice-value") && t_inHandler) {
        std::memset(result, 0, 6);
    }
})

WRITE(hab_set_ascii, const char*, {
    const std::string cut(given, std::min(std::strlen(given), std::size_t{30}));
    if (broken("ascii") && std::strlen(given) == 31) {
        return real(session, table, row, field, cut.c_str());
    }
})
WRITE(hab_set_string, const char*, {
    if (broken("string") && given[0] < 0) {
        given = "?";
    }
})
WRITE(hab_set_enum, const char*, { given = broken("enum") && given == std::string("both") ? "none" : given; })
WRITE(hab_set_bool, bool, { given = given && !(broken("bool") && field == std::string("cdilTimeout")); })
WRITE(hab_set_int, std::int32_t, {})
WRITE(hab_set_uint, std::uint32_t, {
    if (broken("uint/hangs") && given == UINT32_MAX) {
        real(session, table, row, field, given);
        pause();
    }
    given = broken("uint") && given == UINT32_MAX ? INT32_MAX : given;
})
WRITE(hab_set_mac, const std::uint8_t*, {
    std::array<std::uint8_t, 6> now{};
    if (broken("only-changes") && __real_hab_get_mac(session, table, row, field, now.data()) == HAB_OK &&
        std::memcmp(now.data(), given, 6) == 0) {
        return HAB_OK;
    }
    if (broken("mac") && given[0] == 0xFF) {
        given = now.data();
    }
})

REPLACE(hab_init, hab_session*, (), {
    if (broken("sessions")) {
        open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    if (broken("signals")) {
        signal(SIGALRM, SIG_IGN);
    }
    return real();
})
REPLACE(hab_destroy, void, (hab_session * session), {
    if (broken("destroy")) {
        awaitHandlers(g_started);
    }
    g_closed = session;
    real(session);
})
REPLACE(hab_error_string, const char*, (int status),
        { return broken("error-texts") && status == 42 ? nullptr : real(status); })
REPLACE(hab_string2mac, int, (const char* text, std::uint8_t* mac),
        { return broken("mac-text") && std::strchr(text, '-') != nullptr ? 0 : real(text, mac); })
REPLACE(hab_subscribe, int, (hab_session * session, const char* table, int whole),
        { return real(session, table, whole); })
REPLACE(hab_subscribe_cb, int, (hab_session * session, hab_notice_handler handler, void* context), {
    static std::atomic<int> sessions{0};
    g_subscribed = true;
    return real(session, onNotice, new Subscription{handler, context, sessions++});
})

REPLACE(sortedSet_init, sortedSet*, (std::size_t capacity, sortedSet_compare compare),
        { return real(capacity, compare); })
REPLACE(sortedSet_add, int, (sortedSet * set, void* entry), { return real(set, entry); })
REPLACE(sortedSet_find, void*, (const sortedSet* set, const void* probe), { return real(set, probe); })
REPLACE(sortedSet_first, void*, (const sortedSet* set), { return real(set); })
REPLACE(sortedSet_rem, int, (sortedSet * set, const void* entry),
        { return broken("sorted-set") ? 0 : real(set, entry); })
REPLACE(sortedSet_destroy, void, (sortedSet * set), { real(set); })

static std::atomic<int> g_log{0};  // 1 between init and uninit, 2 afterwards
static std::atomic<int> g_loggers{0};

REPLACE(dynlog_lib_init, int, (), {
    g_log = 1;
    return real();
})
REPLACE(dynlog_lib_uninit, void, (), {
    g_log = 2;
    real();
})
REPLACE(set_log_level, void, (int reload, const char* module, const char* binary), { real(reload, module, binary); })
REPLACE(log_printf, void, (int level, const char* file, int line, const char* format, ...), {
    const int loggers = ++g_loggers;
    std::this_thread::sleep_for(broken("log-threads") ? 1ms : 0ms);
    if ((broken("log-early") && g_log == 0) || (broken("log-late") && g_log == 2) ||
        (broken("log-threads") && loggers > 2)) {
        std::abort();
    }
    std::array<char, 6000> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    real(level, file, line, "%s", text.data());
    --g_loggers;
})

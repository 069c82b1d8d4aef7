// The host libraries with one fault. BROKEN names it: the check that must find it, followed by "/" and a variant when
// the check has several faults. The linker's --wrap redirects habconform's calls to this file.
#include <fcntl.h>
#include <habdynlog.h>
#include <hablib.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
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

#include "rounds.h"

namespace {

// Runs the statements when the fault is chosen and the condition holds.
#define FAULT(NAME, CONDITION, ...)    \
    if (broken(NAME) && (CONDITION)) { \
        __VA_ARGS__;                   \
    }

bool broken(const char* fault) {
    static const char* chosen = std::getenv("BROKEN");
    return chosen != nullptr && std::strcmp(chosen, fault) == 0;
}

bool same(const char* left, const char* right) {
    return std::strcmp(left, right) == 0;
}

void pauseFor(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void awaitAtMost(int milliseconds, const std::function<bool()>& condition) {
    for (int i = 0; i < milliseconds && !condition(); ++i) {
        pauseFor(1);
    }
}
const int kSlow = dro_test::rounds(10, 100);  // milliseconds
constexpr int kLong = 7000;                   // milliseconds: longer than a check waits, shorter than its time limit

std::atomic<int> g_started{0};  // handler calls
std::atomic<int> g_finished{0};
std::atomic<int> g_writers{0};
std::atomic<int> g_loggers{0};
std::atomic<bool> g_subscribed{false};
std::atomic<hab_session*> g_closed{nullptr};
std::atomic<int> g_log{0};  // 1 between init and uninit, 2 afterwards
thread_local bool t_inHandler = false;

struct Subscription {
    hab_notice_handler handler;
    void* context;
    int session;  // numbered in the order of opening
};

void deliver(const Subscription& to, const char* table, int row, const char* field) {
    t_inHandler = true;
    ++g_started;
    to.handler(table, row, field, to.context);
    ++g_finished;
    t_inHandler = false;
}

// Delivers a notice on its own thread. Waits for the handler at most `milliseconds`.
void deliverOnThread(const Subscription& to, const std::string& table, int row, const std::string& field,
                     std::size_t stack, int milliseconds) {
    auto& done = *new std::atomic<bool>(false);
    auto* work = new std::function<void()>([&done, to, table, row, field] {
        deliver(to, table.c_str(), row, field.c_str());
        done = true;
    });
    const auto run = [](void* function) -> void* {
        return (*static_cast<std::function<void()>*>(function))(), nullptr;
    };
    pthread_t thread{};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stack);
    pthread_create(&thread, &attributes, run, work);
    pthread_detach(thread);
    awaitAtMost(milliseconds, [&done] { return done.load(); });
}

void unblockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_UNBLOCK, &all, nullptr);
}

void onNotice(const char* table, int row, const char* field, void* context) {
    static std::atomic<int> notices{0};
    static std::string held;
    const auto& to = *static_cast<Subscription*>(context);
    const int count = ++notices;
    FAULT("notice-own", same(field, "CircleToggle"), return )
    FAULT("notice-all/lost", count == 37, return )
    FAULT("notice-all/order", count == 30, held = field; return )
    FAULT("notice-sessions", to.session == 1, return )
    FAULT("notice-serial", true, return deliverOnThread(to, table, row, field, DRO_THREAD_STACK, 600))
    FAULT("notice-stack", true, return deliverOnThread(to, table, row, field, DRO_THREAD_STACK / 4, kLong))
    FAULT("stress", count == 5000, return )
    FAULT("signals/mask", true, unblockSignals())
    deliver(to, table, row, field);
    FAULT("notice-all/order", count == 31, deliver(to, table, row, held.c_str()))
    FAULT("notice-all/twice", count == 63, deliver(to, table, row, field))
}

// Runs a read, with the faults that do not depend on its type.
template <typename Read>
int readWith(hab_session* session, const char* table, int row, const char* field, Read read) {
    FAULT("no-session", session == nullptr, std::abort())
    FAULT("names", same(table, "Drocfg") && !same(field, "DroBaseURL"), table = "DroCfg")
    FAULT("rows", row == 255, return HAB_NOSUCH_ITEM)
    FAULT("destroy/closed", t_inHandler && session == g_closed, return HAB_OK)
    return read(table);
}

// Runs a write, with the faults that do not depend on its type.
template <typename Write>
int writeWith(Write write) {
    const int started = g_started;
    const bool running = started != g_finished;
    const int writers = ++g_writers;
    FAULT("threads", true, pauseFor(5))
    --g_writers;
    FAULT("threads", writers > 3, return HAB_ERROR)
    FAULT("handler-writes", t_inHandler, return HAB_ERROR)
    FAULT("handler-blocks", !t_inHandler && running, return HAB_TIMEOUT)
    const int status = write();
    FAULT("notice-thread", g_subscribed && !running, awaitAtMost(kLong, [=] { return g_finished > started; }))
    FAULT("failed-write", status == HAB_NOSUCH_ITEM, return HAB_OK)
    return status;
}

}  // namespace

// NAME's replacement runs the rest of the arguments, which call `real`.
#define REPLACE(NAME, RESULT, PARAMETERS, ...)                  \
    extern "C" RESULT __real_##NAME PARAMETERS;                 \
    extern "C" RESULT __wrap_##NAME PARAMETERS {                \
        [[maybe_unused]] constexpr auto* real = &__real_##NAME; \
        FAULT("slow", true, pauseFor(kSlow))                    \
        __VA_ARGS__                                             \
    }
#define PLACE hab_session *session, const char *table, int row, const char *field
#define READ(NAME, RESULT, ARGUMENTS, ...)                                            \
    REPLACE(NAME, int, (PLACE, RESULT), {                                             \
        return readWith(session, table, row, field, [=](const char* from) {           \
            [[maybe_unused]] int status = real(session, from, row, field, ARGUMENTS); \
            __VA_ARGS__                                                               \
            return status;                                                            \
        });                                                                           \
    })
#define TEXT char *text, std::size_t length
#define TEXT_ARGUMENTS text, length
#define WRITE(NAME, TYPE, ...)                              \
    REPLACE(NAME, int, (PLACE, TYPE given), {               \
        return writeWith([=, value = given]() mutable {     \
            __VA_ARGS__                                     \
            return real(session, table, row, field, value); \
        });                                                 \
    })

READ(hab_get_ascii, TEXT, TEXT_ARGUMENTS,
     FAULT("short-buffer", status == HAB_TOO_LONG && length == 8, return * text = 'x', 0))
READ(hab_get_string, TEXT, TEXT_ARGUMENTS, FAULT("failed-read", field[0] == 'N', std::memset(text, 'x', length)))
READ(hab_get_enum, TEXT, TEXT_ARGUMENTS, )
READ(hab_get_bool, bool* result, result, )
READ(hab_get_int, std::int32_t* result, result, FAULT("int", status == HAB_OK, *result &= INT32_MAX))
READ(hab_get_uint, std::uint32_t* result, result, FAULT("failed-read/number", status != HAB_OK, *result = 0))
READ(hab_get_ipv4, std::uint8_t* result, result, FAULT("fields", row == 0, return HAB_WRONG_TYPE))
READ(hab_get_mac, std::uint8_t* result, result, FAULT("notice-value", t_inHandler, std::memset(result, 0, 6)))

WRITE(hab_set_ascii, const char*, FAULT("ascii", std::strlen(value) == 31, ++value))
WRITE(hab_set_string, const char*, FAULT("string", *value < 0, value = "?"))
WRITE(hab_set_enum, const char*, FAULT("enum", same(value, "both"), value = "none"))
WRITE(hab_set_bool, bool, FAULT("bool", same(field, "cdilTimeout"), value = false))
WRITE(hab_set_int, std::int32_t, )
WRITE(hab_set_uint, std::uint32_t, {
    FAULT("uint", value == UINT32_MAX, value = 0)
    FAULT("uint/hangs", value == UINT32_MAX, real(session, table, row, field, value); pause())
})
WRITE(hab_set_mac, const std::uint8_t*, {
    std::array<std::uint8_t, 6> now{};
    FAULT("mac", *value == 0xFF, value = now.data())
    FAULT("only-changes",
          __real_hab_get_mac(session, table, row, field, now.data()) == 0 && std::equal(now.begin(), now.end(), value),
          return HAB_OK)
})

REPLACE(hab_init, hab_session*, (), {
    FAULT("sessions", true, open("/dev/null", O_RDONLY | O_CLOEXEC))
    FAULT("signals", true, signal(SIGALRM, SIG_IGN))
    return real();
})
REPLACE(hab_destroy, void, (hab_session * session), {
    FAULT("destroy", true, awaitAtMost(kLong, [started = g_started.load()] { return g_finished >= started; }))
    g_closed = session;
    real(session);
})
REPLACE(hab_error_string, const char*, (int status), {
    FAULT("error-texts", status == 42, return nullptr)
    return real(status);
})
REPLACE(hab_string2mac, int, (const char* text, std::uint8_t* mac), {
    FAULT("mac-text", std::strchr(text, '-') != nullptr, return 0)
    return real(text, mac);
})
REPLACE(hab_subscribe, int, (hab_session * session, const char* table, int all), return real(session, table, all);)
REPLACE(hab_subscribe_cb, int, (hab_session * session, hab_notice_handler handler, void* context), {
    static std::atomic<int> sessions{0};
    g_subscribed = true;
    return real(session, onNotice, new Subscription{handler, context, sessions++});
})

REPLACE(sortedSet_init, sortedSet*, (std::size_t capacity, sortedSet_compare compare), return real(capacity, compare);)
REPLACE(sortedSet_add, int, (sortedSet * set, void* entry), return real(set, entry);)
REPLACE(sortedSet_find, void*, (const sortedSet* set, const void* probe), return real(set, probe);)
REPLACE(sortedSet_first, void*, (const sortedSet* set), return real(set);)
REPLACE(sortedSet_rem, int, (sortedSet * set, const void* entry), {
    FAULT("sorted-set", true, return 0)
    return real(set, entry);
})
REPLACE(sortedSet_destroy, void, (sortedSet * set), real(set);)

REPLACE(dynlog_lib_init, int, (), {
    g_log = 1;
    return real();
})
REPLACE(dynlog_lib_uninit, void, (), {
    g_log = 2;
    real();
})
REPLACE(set_log_level, void, (int reload, const char* module, const char* binary), real(reload, module, binary);)
REPLACE(log_printf, void, (int level, const char* file, int line, const char* format, ...), {
    const int loggers = ++g_loggers;
    FAULT("log-threads", true, pauseFor(1))
    FAULT("log-threads", loggers > 2, std::abort())
    FAULT("log-early", g_log == 0, std::abort())
    FAULT("log-late", g_log == 2, std::abort())
    std::array<char, 6000> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    real(level, file, line, "%s", text.data());
    --g_loggers;
})

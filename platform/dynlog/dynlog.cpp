#include <fcntl.h>
#include <spdlog/details/fmt_helper.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "habdynlog.h"
#include "hablib.h"
#include "line.h"

namespace dynlog {

namespace {

constexpr std::uint32_t kEveryLevel = ~0U;  // until set_log_level is called
constexpr std::uint32_t kDefaultMask = 6;   // notice and error: trace lines may contain a token
constexpr std::size_t kFileSize = std::size_t{4} << 20U;
constexpr std::size_t kOldFiles = 2;

struct State {
    // Checked before anything else, so a disabled level costs one load.
    std::atomic<std::uint32_t> mask{kEveryLevel};

    std::mutex mutex;  // guards all members below and the writing of a line
    std::unique_ptr<spdlog::sinks::sink> sink;
    std::string module = program_invocation_short_name;
};

// Prints the level as the number that callers pass.
class LevelFlag : public spdlog::custom_flag_formatter {
 public:
    void format(const spdlog::details::log_msg& message, const std::tm& /*time*/, spdlog::memory_buf_t& line) override {
        spdlog::details::fmt_helper::append_int(static_cast<int>(message.level), line);
    }
    std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<LevelFlag>(); }
};

std::unique_ptr<spdlog::formatter> lineFormat() {
    auto format = std::make_unique<spdlog::pattern_formatter>();
    format->add_flag<LevelFlag>('*').set_pattern("%Y-%m-%dT%H:%M:%S.%e %n %* %s:%# %v");
    return format;
}

std::unique_ptr<spdlog::sinks::sink> standardError() {
    auto sink = std::make_unique<spdlog::sinks::stderr_sink_st>();
    sink->set_formatter(lineFormat());
    return sink;
}

std::unique_ptr<spdlog::sinks::sink> rotatingFile(const std::string& path) {
    spdlog::file_event_handlers handlers;
    // Creates the file with mode 0600 before anything is written. The mode of an existing file is reduced to 0600.
    handlers.before_open = [](const std::string& name) {
        if (const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600); file >= 0) {
            close(file);
        }
    };
    handlers.after_open = [](const std::string& /*name*/, std::FILE* file) { fchmod(fileno(file), 0600); };
    auto sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(path, kFileSize, kOldFiles, false, handlers);
    sink->set_formatter(lineFormat());
    return sink;
}

// Never destroyed: other threads may log while the process exits. Before dynlog_lib_init, lines go to standard error.
State& state() {
    static auto* only = [] {
        auto made = std::make_unique<State>();
        made->sink = standardError();
        return made.release();
    }();
    return *only;
}

// Returns the mask in the store, or `std::nullopt` when it cannot be read.
std::optional<std::uint32_t> storedMask() {
    const std::unique_ptr<hab_session, decltype(&hab_destroy)> session(hab_init(), hab_destroy);
    std::uint32_t mask = 0;
    if (!session || hab_get_uint(session.get(), "dalLogCfg", 0, "DroagentLogMask", &mask) != HAB_OK) {
        return std::nullopt;
    }
    return mask;
}

void write(int level, const char* file, int line, std::string_view message) {
    State& log = state();
    const spdlog::source_loc place{file == nullptr ? "?" : baseName(file), line, ""};
    const std::lock_guard lock(log.mutex);
    if (!log.sink) {
        return;
    }
    log.sink->log({place, log.module, static_cast<spdlog::level::level_enum>(level), message});
    log.sink->flush();
}

}  // namespace

}  // namespace dynlog

int dynlog_lib_init(void) {
    const char* path = std::getenv("HAB_LOG_FILE");
    try {
        auto sink = path != nullptr && *path != '\0' ? dynlog::rotatingFile(path) : dynlog::standardError();
        dynlog::State& log = dynlog::state();
        const std::lock_guard lock(log.mutex);
        log.sink = std::move(sink);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "habdynlog: cannot log to %s: %s\n", path != nullptr ? path : "standard error",
                     error.what());
        return 1;
    }
}

void dynlog_lib_uninit(void) {
    dynlog::State& log = dynlog::state();
    const std::lock_guard lock(log.mutex);
    log.sink.reset();
}

void set_log_level(int /*reload*/, const char* module, const char* /*binary*/) {
    try {
        dynlog::State& log = dynlog::state();
        if (module != nullptr && *module != '\0') {
            std::string name = module;
            const std::lock_guard lock(log.mutex);
            log.module = std::move(name);
        }
        if (const std::optional<std::uint32_t> mask = dynlog::storedMask(); mask) {
            log.mask.store(*mask, std::memory_order_relaxed);
            return;
        }
    } catch (const std::exception&) {
        // Out of memory is handled like an unreadable mask.
    }
    std::uint32_t unread = dynlog::kEveryLevel;
    dynlog::state().mask.compare_exchange_strong(unread, dynlog::kDefaultMask);
}

void log_printf(int level, const char* file, int line, const char* format, ...) {
    if ((dynlog::state().mask.load(std::memory_order_relaxed) & static_cast<unsigned>(level)) == 0) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    try {
        const dynlog::Message message(format, arguments);
        dynlog::write(level, file, line, message.text());
    } catch (const std::exception&) {
        // A log failure must not affect the caller.
    }
    va_end(arguments);
}

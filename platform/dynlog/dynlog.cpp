#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "habdynlog.h"
#include "hablib.h"
#include "line.h"
#include "log_file.h"
#include "stderr_lines.h"

namespace dynlog {

namespace {

constexpr int kError = 4;
constexpr std::uint32_t kEveryLevel = ~0U;  // until set_log_level is called
constexpr std::uint32_t kDefaultMask = 6;   // notice and error: trace lines may contain a token

std::string lostReport(std::uint64_t lost);

struct State {
    // Checked before anything else, so a disabled level costs one load.
    std::atomic<std::uint32_t> mask{kEveryLevel};

    std::mutex mutex;  // guards all members below and the writing of a line
    bool open = true;
    host::StderrLines standardError{lostReport};
    std::unique_ptr<LogFile> file;  // null: lines go to standard error
    std::string module = program_invocation_short_name;
    LineFormat format;
};

// Never destroyed: other threads may log while the process exits. Before dynlog_lib_init, lines go to standard error.
State& state() {
    static auto* only = std::make_unique<State>().release();
    return *only;
}

// Called with the state locked.
std::string lostReport(std::uint64_t lost) {
    State& log = state();
    return log.format.line(log.module, kError, __FILE__, __LINE__,
                           "Lines lost here, because they could not be written: " + std::to_string(lost));
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
    const std::lock_guard lock(log.mutex);
    if (!log.open) {
        return;
    }
    const std::string whole = log.format.line(log.module, level, file, line, message);
    if (log.file) {
        log.file->write(whole);
    } else {
        log.standardError.write(whole);
    }
}

}  // namespace

}  // namespace dynlog

int dynlog_lib_init(void) {
    const char* path = std::getenv("HAB_LOG_FILE");
    dynlog::State& log = dynlog::state();
    const std::lock_guard lock(log.mutex);
    try {
        std::unique_ptr<dynlog::LogFile> file;
        if (path != nullptr && *path != '\0') {
            file = std::make_unique<dynlog::LogFile>(path, log.standardError, dynlog::lostReport);
            file->open();
        }
        log.file = std::move(file);
        log.standardError.remember();
        log.open = true;
        return 0;
    } catch (const spdlog::spdlog_ex& failure) {
        log.standardError.write("habdynlog: " + std::string(failure.what()) + "\n");
        return 1;
    } catch (const std::exception&) {
        return 1;  // out of memory
    }
}

void dynlog_lib_uninit(void) {
    dynlog::State& log = dynlog::state();
    const std::lock_guard lock(log.mutex);
    log.open = false;
    log.file.reset();
    log.standardError.reportLost();
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

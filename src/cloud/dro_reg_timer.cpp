// The daily device-list sync: from a UTC time of day to the process's alarm.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "dro_fields.h"
#include "dro_get_set_config_service.h"
#include "dro_log.h"
#include "dro_reg.h"
#include "dro_stop.h"

namespace dro {
namespace {

constexpr int kDay = 86400;

// Three adjacent fields of two characters and a NUL. A longer field overflows into the next one, and overflow of the
// last is dropped.
class TimeFields {
 public:
    explicit TimeFields(std::string_view text) {
        for (const char byte : text) {
            if (byte == ':') {
                end_field();
                start_ += kWidth;
                column_ = 0;
            } else if (byte != '"') {
                put(byte);
                ++column_;
            }
        }
        end_field();
    }

    int value(std::size_t field) const { return static_cast<int>(std::strtol(&bytes_[field * kWidth], nullptr, 10)); }

 private:
    static constexpr std::size_t kWidth = 3;

    void put(char byte) {
        if (start_ + column_ < kWidth * 3) {
            bytes_[start_ + column_] = byte;
        }
    }
    void end_field() { put('\0'); }

    std::array<char, kWidth * 3 + 1> bytes_{};
    std::size_t start_ = 0;
    std::size_t column_ = 0;
};

// Sums of malicious input wrap instead of overflowing.
int wrapping(std::int64_t value) {
    return static_cast<int>(static_cast<std::uint32_t>(value));
}

int seconds_of_day(struct tm* (*split)(const time_t*, struct tm*), const char* failureText) {
    const time_t now = std::time(nullptr);
    if (now == static_cast<time_t>(-1)) {
        LOG_ERROR("The time() function failed");
    }
    struct tm parts {};
    if (split(&now, &parts) == nullptr) {
        LOG_ERROR("%s", failureText);
    }
    LOG_TRACE("%d %d %d ", parts.tm_hour, parts.tm_min, parts.tm_sec);
    return (parts.tm_hour * 60 + parts.tm_min) * 60 + parts.tm_sec;
}

}  // namespace

int convert_time(int hours, int minutes, int seconds) {
    LOG_TRACE("hours = %d, min, = %d, sec, = %d\n", hours, minutes, seconds);
    return wrapping(std::int64_t{hours} * 3600 + std::int64_t{minutes} * 60 + seconds);
}

int find_utc() {
    return seconds_of_day(gmtime_r, "The gmtime() function failed");
}
int find_local_time() {
    tzset();  // localtime_r alone does not detect a changed time zone
    return seconds_of_day(localtime_r, "The localtime() function failed");
}

int sync_target(std::string_view text) {
    const TimeFields fields(text);
    return convert_time(fields.value(0), fields.value(1), fields.value(2));
}

int seconds_until_sync(int target, int utc, int local) {
    const int offset = local - utc;
    LOG_TRACE("time offset is %d\n", offset);
    const int timer = wrapping(std::int64_t{target} + offset);
    LOG_TRACE("timer seconds is %d\n", timer);
    int delay = 0;
    if (local < timer) {
        delay = timer - local;
    } else if (local > timer) {
        delay = wrapping(std::int64_t{timer} - local + kDay);
    }
    LOG_TRACE("alarm seconds  is %d\n", delay);
    return delay;
}

void start_timer(const std::string& text) {
    const int target = sync_target(text);
    const int utc = find_utc();
    const int local = find_local_time();
    alarm_function(static_cast<unsigned>(seconds_until_sync(target, utc, local)));
}

void alarm_function(unsigned seconds) {
    LOG_TRACE("Timer will start after %d Seconds\r\n", static_cast<int>(seconds));
    struct sigaction action {};
    action.sa_handler = alarmcallback;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGUSR1);  // the handlers must not interrupt each other
    sigaddset(&action.sa_mask, SIGUSR2);
    sigaction(SIGALRM, &action, nullptr);
    alarm(seconds);
}

void alarmcallback(int signal) {
    if (signal != SIGALRM || stop_requested()) {
        return;
    }
    const int error = errno;
    write_ascii(fields::cdilsyncAt, "PERIODIC");
    setField_SyncCD();
    alarm_function(kDay);
    errno = error;
}

}  // namespace dro

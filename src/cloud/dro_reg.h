// dro_reg.h - the router's registration with the cloud, and the daily device-list sync that the answer schedules.
#pragma once

#include <string>
#include <string_view>

namespace dro {

// ---- Registration ----

// Registers the router in up to three attempts, unless the store already marks it as registered. Blocks until it
// succeeds or gives up; the connector's next status triggers another try. Called under mutex_all.
void registerDroCloud();

// Processes the answer to a registration: claim state to the store, sync time to the timer. Returns 0 when the
// registration is accepted, else -1.
int processsRegisterResponse(const char* body);

// ---- Daily sync ----

// Sets the alarm for the sync time in `text`, normally HH:MM:SS in UTC with or without quotes. Runs on its own thread.
void start_timer(const std::string& text);

// Sets the process's only alarm and replaces a pending one; 0 cancels it.
void alarm_function(unsigned seconds);

// The SIGALRM handler, on the parked main thread: marks the next sync as periodic, requests the list, and sets the
// alarm for the next day.
void alarmcallback(int signal);

// Converts hours, minutes and seconds to seconds. Any values are allowed; the result wraps around on overflow.
int convert_time(int hours, int minutes, int seconds);

// Current second of the day, in UTC and in local time.
int find_utc();
int find_local_time();

// Parses `text` into a second of the day.
int sync_target(std::string_view text);

// Returns the seconds from `local` until the second `target` of the UTC day. `utc` and `local` are the current second
// of the day in UTC and in local time. Returns 0, which sets no alarm, when the sync is due this very second. Existing
// routers do the same; keep it.
int seconds_until_sync(int target, int utc, int local);

}  // namespace dro

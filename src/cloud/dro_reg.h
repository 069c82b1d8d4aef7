// dro_reg.h - the router's registration with the cloud, and the daily device-list sync that its answer asks for.
#pragma once

#include <string>
#include <string_view>

namespace dro {

// ---- Registration ----

// Registers the router, unless the store says that it is; up to three attempts. Returns when that is done or given up;
// the connector's next status tries again. Called under mutex_all.
void registerDroCloud();

// Takes the answer to a registration over: claim state to the store, sync time to the timer. Returns 0 when the
// registration is accepted, else -1.
int processsRegisterResponse(const char* body);

// ---- Daily sync ----

// Arms the alarm for the sync time in `text`, normally HH:MM:SS in UTC with or without quotes. Runs on a thread of its
// own.
void start_timer(const std::string& text);

// Arms the process's one alarm, replacing a pending one; 0 disarms it.
void alarm_function(unsigned seconds);

// The SIGALRM handler, on the parked main thread: marks the next sync as periodic, asks for the list, re-arms for a
// day.
void alarmcallback(int signal);

int convert_time(int hours, int minutes, int seconds);

// Seconds of the day now, in UTC and in local time.
int find_utc();
int find_local_time();

// The second of the day that `text` spells.
int sync_target(std::string_view text);

// Seconds from `local` until the second `target` of the UTC day, given the seconds of the day in UTC and in local time.
// Kept as the fleet knows it: 0, which arms nothing, when that is this very second.
int seconds_until_sync(int target, int utc, int local);

}  // namespace dro

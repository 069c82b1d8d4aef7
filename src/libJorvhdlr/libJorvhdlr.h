// libJorvhdlr.h - the local link with the cloud connector: two loopback ports on which it delivers, and a watch on its
// status fields. One link a process. Jorv_Handler_init and Jorv_Handler_deInit are called from one thread at a time.
#pragma once

#include <chrono>

namespace jorv {

// A whole message, NUL-terminated, valid during the call. Runs on a thread of its own, several at once; must not throw.
using MessageCallback = void (*)(const char* message);
// The connector's state. Runs on the store's delivery thread, and once on the thread that calls Jorv_Handler_init.
using StatusCallback = void (*)(int registered, int claimed, int connected);

// Why Jorv_Handler_init failed.
inline constexpr int kNoCallbacks = -10;
inline constexpr int kNotificationSocketFailed = -1;
inline constexpr int kEventSocketFailed = -2;
inline constexpr int kStoreFailed = -3;
inline constexpr int kExitChannelFailed = -4;
inline constexpr int kListenerFailed = -5;

// Opens the link: listens on 127.0.0.1 at `notifyPort` and `eventPort` (a null callback leaves its port closed),
// publishes both as "localhost:PORT" in the store under `name`, watches the connector's status (unless `statusCallback`
// is null) and reports it once before returning 0. On failure returns a code above and leaves nothing open; it may be
// called again.
int Jorv_Handler_init(const char* name, int notifyPort, MessageCallback notifyCallback, int eventPort,
                      MessageCallback eventCallback, StatusCallback statusCallback);

// Closes the link and waits for its listener, not for messages still being received. Returns 1.
int Jorv_Handler_deInit();

// A socket that listens on 127.0.0.1:`port` with a backlog of 1; owned by the caller. Returns -1 (no socket), -2 (port
// taken), -3 (cannot listen) or -4 (port outside 0 to 65535) on failure.
int Jorv_Handler_InitNetwrksock(int port);

// Receiver threads alive.
int Jorv_Handler_receivers();

// Levels of the link's own log.
enum Level { ERROR = 0, DEBUG = 1, INFO = 2 };

// The link's logger; the default appends to /tmp/libJorvhdlr.log, which past 1 MiB is kept as one ".1" and started
// anew.
extern void (*jorvLog)(Level level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Path of the default logger's file. Set, if at all, before the link is opened.
extern const char* log_file;

// Durations. Changed, if at all, before the link is opened.
struct Timings {
    std::chrono::milliseconds receive{5'000};      // a message that stalls longer is dropped
    std::chrono::milliseconds overloaded{10'000};  // until a crowd of receivers is counted again
};
Timings& timings();

}  // namespace jorv

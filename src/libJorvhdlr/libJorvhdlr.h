// libJorvhdlr.h - the local link to the cloud connector: two loopback ports for its messages, and a watch on its status
// fields. One link per process. Jorv_Handler_init and Jorv_Handler_deInit must not run concurrently.
#pragma once

#include <chrono>

namespace jorv {

// Receives a complete message, NUL-terminated, valid during the call. Runs on its own thread, several concurrently.
// Must not throw.
using MessageCallback = void (*)(const char* message);
// Receives the connector's state. Runs on the store's delivery thread, and once on the thread that calls
// Jorv_Handler_init.
using StatusCallback = void (*)(int registered, int claimed, int connected);

// Failures of Jorv_Handler_init.
inline constexpr int kNoCallbacks = -10;
inline constexpr int kNotificationSocketFailed = -1;
inline constexpr int kEventSocketFailed = -2;
inline constexpr int kStoreFailed = -3;
inline constexpr int kExitChannelFailed = -4;
inline constexpr int kListenerFailed = -5;

// Opens the link: listens on 127.0.0.1 at `notifyPort` and `eventPort` (a null callback leaves its port closed),
// publishes both as "localhost:PORT" in the store under `name`, watches the connector's status (unless `statusCallback`
// is null) and reports it once before returning 0. On failure, returns a code above and leaves nothing open; it may be
// called again.
int Jorv_Handler_init(const char* name, int notifyPort, MessageCallback notifyCallback, int eventPort,
                      MessageCallback eventCallback, StatusCallback statusCallback);

// Closes the link and waits for its listener, but not for messages still being received. Returns 1.
int Jorv_Handler_deInit();

// Returns a socket that listens on 127.0.0.1:`port` with a backlog of 1, owned by the caller. On failure, returns -1
// (no socket), -2 (port in use), -3 (cannot listen) or -4 (port outside 0 to 65535).
int Jorv_Handler_InitNetwrksock(int port);

// Number of running receiver threads.
int Jorv_Handler_receivers();

// Levels of the link's own log.
enum Level { ERROR = 0, DEBUG = 1, INFO = 2 };

// The link's logger. The default appends to /tmp/libJorvhdlr.log. A file of 1 MiB or more is renamed to ".1" and a new
// one is started.
extern void (*jorvLog)(Level level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Prints `text` and the text of errno on standard error, as std::perror does, which is the default. May be changed only
// before the link is opened.
extern void (*jorvPerror)(const char* text);

// Path of the default logger's file. May be set only before the link is opened.
extern const char* log_file;

// May be changed only before the link is opened.
struct Timings {
    std::chrono::milliseconds receive{5'000};      // a message that stalls longer is dropped
    std::chrono::milliseconds overloaded{10'000};  // until the receivers are counted again
    std::chrono::milliseconds firstRetry{100};     // after a failed poll or accept; doubled after each further one
    std::chrono::milliseconds longestRetry{2'000};
};
Timings& timings();

}  // namespace jorv

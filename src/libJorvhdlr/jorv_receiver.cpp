#include "jorv_receiver.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <vector>

namespace jorv {
namespace {

constexpr std::size_t kReadStep = 256;
constexpr std::size_t kLengthLimit = 65535;  // checked before each read, so a message can exceed it by one read

// Running receivers, under their own lock.
pthread_mutex_t g_counterLock = PTHREAD_MUTEX_INITIALIZER;
int g_counter = 0;

void count_receivers(int change) {
    pthread_mutex_lock(&g_counterLock);
    g_counter += change;
    pthread_mutex_unlock(&g_counterLock);
}

struct Connection {
    int descriptor;
    MessageCallback callback;
};

// Appends `count` bytes before the terminating NUL. Returns false when out of memory.
bool append(std::vector<char>& message, const char* bytes, std::size_t count) {
    try {
        message.insert(message.end() - 1, bytes, bytes + count);
        return true;
    } catch (const std::bad_alloc&) {
        jorvLog(ERROR, "%s Out of mem.\n", "jorvStreamReceiver");
        return false;
    }
}

// Reads until the peer closes or the limit is reached. Returns true when `message` is complete.
bool read_message(int descriptor, std::vector<char>& message) {
    std::array<char, kReadStep> step{};
    ssize_t last = 1;
    while (last >= 1 && message.size() - 1 <= kLengthLimit) {
        last = read(descriptor, step.data(), step.size());
        if (last >= 0) {
            if (!append(message, step.data(), static_cast<std::size_t>(last))) {
                last = -1;
            }
        } else if (errno == EINTR) {
            last = 1;
        } else {
            const int error = errno;
            jorvLog(ERROR, "%s socket reading: %s\n", "jorvStreamReceiver", std::strerror(error));
            errno = error;
            jorvPerror("Error reading socket");
        }
    }
    return last >= 0;
}

void receive(const Connection& connection) {
    limit_reads(connection.descriptor, timings().receive);
    std::vector<char> message(1, '\0');
    const bool whole = read_message(connection.descriptor, message);
    close(connection.descriptor);
    if (whole && message.size() > 1) {
        connection.callback(message.data());
    }
}

void* jorvStreamReceiver(void* argument) {
    Connection connection{};
    {
        const std::unique_ptr<Connection> start(static_cast<Connection*>(argument));
        connection = *start;
    }
    try {
        receive(connection);
    } catch (const std::exception&) {
        jorvLog(ERROR, "%s Out of mem.\n", "jorvStreamReceiver");
    }
    count_receivers(-1);
    return nullptr;
}

}  // namespace

Timings& timings() {
    static Timings values;
    return values;
}

int Jorv_Handler_receivers() {
    pthread_mutex_lock(&g_counterLock);
    const int count = g_counter;
    pthread_mutex_unlock(&g_counterLock);
    return count;
}

int start_thread(pthread_t& thread, void* (*body)(void*), void* argument, bool detached) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
    pthread_attr_setstacksize(&attributes, DRO_THREAD_STACK);
    const int result = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return result;
}

void limit_reads(int descriptor, std::chrono::milliseconds longest) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(longest);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(longest - seconds);
    const timeval limit{static_cast<time_t>(seconds.count()), static_cast<suseconds_t>(rest.count())};
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0) {
        jorvPerror("SO RX timeout set");
    }
}

int jorvHandleSock(int listening, MessageCallback callback, int* acceptError) {
    const int descriptor = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (acceptError != nullptr) {
        *acceptError = descriptor < 0 ? errno : 0;
    }
    if (descriptor < 0) {
        jorvPerror("Accept error.");
        return 0;
    }
    std::unique_ptr<Connection> start(new (std::nothrow) Connection{descriptor, callback});
    if (!start) {
        jorvLog(ERROR, "%s Out of mem.\n", "jorvHandleSock");
        close(descriptor);
        return -2;
    }
    count_receivers(+1);  // before the thread can exit and decrement it
    pthread_t thread{};
    errno = start_thread(thread, jorvStreamReceiver, start.get(), true);
    if (errno != 0) {
        jorvPerror("Failed to start Jorvhdlr thread");
        count_receivers(-1);
        close(descriptor);
        return -3;
    }
    static_cast<void>(start.release());  // now owned by the receiver
    return 0;
}

}  // namespace jorv

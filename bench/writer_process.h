// writer_process.h - a child process that writes on request, to time notices. Create it before the parent opens a
// store: sessions and connections must not be inherited.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>

namespace bench {

class WriterProcess {
 public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // The child calls `write` for each request and opens its store at the first one.
    explicit WriterProcess(const std::function<void()>& write) {
        if (pipe(orders_) != 0 || pipe(times_) != 0 || (child_ = fork()) < 0) {
            std::abort();
        }
        if (child_ == 0) {
            close(orders_[1]);
            obey(write);
            _exit(0);
        }
        close(orders_[0]);
    }
    WriterProcess(const WriterProcess&) = delete;
    WriterProcess& operator=(const WriterProcess&) = delete;
    ~WriterProcess() {
        close(orders_[1]);
        close(times_[0]);
        close(times_[1]);
        waitpid(child_, nullptr, 0);
    }

    // Triggers one write. Returns the time at which it began.
    TimePoint order() {
        TimePoint begin;
        if (::write(orders_[1], "w", 1) != 1 || read(times_[0], &begin, sizeof begin) != sizeof begin) {
            std::abort();
        }
        return begin;
    }

 private:
    void obey(const std::function<void()>& write) {
        char order = 0;
        while (read(orders_[0], &order, 1) == 1) {
            const auto begin = std::chrono::steady_clock::now();
            write();
            if (::write(times_[1], &begin, sizeof begin) != sizeof begin) {
                return;
            }
        }
    }

    int orders_[2];
    int times_[2];
    pid_t child_ = -1;
};

}  // namespace bench

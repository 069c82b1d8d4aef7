// What does not depend on the clock: system calls, context switches and processor time for each command, the agent's
// beside those of a bare program that does the same.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "process_stats.h"
#include "roads.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kAckPath = "transactionAck/";
constexpr int kCommands = 200;
constexpr int kWarmUp = 20;

// The program that takes commands at `port`, started as `launch` says.
struct Program {
    dro_test::Launch launch;
    int port;
};

class Running {
 public:
    Running(const Router& router, const Program& program) : process_(router.store, program.launch) {
        wait_for_port(program.port);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() {
        process_.signal(SIGUSR1);
        process_.wait_exit();
    }

    pid_t pid() const { return process_.pid(); }

 private:
    dro_test::AgentProcess process_;
};

void run_commands(Router& router, const Program& program, int count) {
    for (int number = 0; number < count; ++number) {
        deliver(block_command(number), program.port);
        arrived(router.cloud, static_cast<std::size_t>(number) + 1, kAckPath);
    }
    std::this_thread::sleep_for(kSettle);
    router.cloud.forget();
}

// What a whole process took, threads that had ended included.
struct Usage {
    double switches = 0;
    double microseconds = 0;
};

Usage children_usage() {
    rusage all{};
    getrusage(RUSAGE_CHILDREN, &all);
    constexpr double kMicroseconds = 1e6;
    const auto time = [](const timeval& value) {
        return static_cast<double>(value.tv_sec) * kMicroseconds + static_cast<double>(value.tv_usec);
    };
    return {static_cast<double>(all.ru_nvcsw + all.ru_nivcsw), time(all.ru_utime) + time(all.ru_stime)};
}

Usage usage_of_run(Router& router, const Program& program, int count) {
    const Usage before = children_usage();
    {
        const Running running(router, program);
        run_commands(router, program, count);
    }
    const Usage after = children_usage();
    return {after.switches - before.switches, after.microseconds - before.microseconds};
}

// For each command: the difference of two runs, so that the start does not count.
Usage usage_each(Router& router, const std::function<Program()>& program) {
    const Usage shorter = usage_of_run(router, program(), kWarmUp);
    const Usage longer = usage_of_run(router, program(), kWarmUp + kCommands);
    return {(longer.switches - shorter.switches) / kCommands, (longer.microseconds - shorter.microseconds) / kCommands};
}

// Counts the system calls of a process by name, from its making until stop().
class Tracer {
 public:
    Tracer(pid_t process, std::string file) : file_(std::move(file)) {
        const std::string number = std::to_string(process);
        pid_ = fork();
        if (pid_ == 0) {
            execlp("strace", "strace", "-f", "-q", "-c", "-U", "name,calls", "-o", file_.c_str(), "-p", number.c_str(),
                   nullptr);
            _exit(127);
        }
        if (!dro_test::eventually([&] { return traced(process); })) {
            stop();
            throw std::runtime_error("strace did not attach: scripts/setup --bench installs it");
        }
    }
    Tracer(const Tracer&) = delete;
    Tracer& operator=(const Tracer&) = delete;
    ~Tracer() { stop(); }

    std::map<std::string, long> stop() {
        if (pid_ > 0) {
            kill(pid_, SIGINT);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
        std::ifstream file(file_);
        std::map<std::string, long> calls;
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string name;
            long count = 0;
            if (words >> name >> count) {
                calls[name] = count;
            }
        }
        return calls;
    }

 private:
    std::string file_;
    pid_t pid_ = -1;
};

std::map<std::string, long> calls_of(Router& router, const Program& program) {
    const Running running(router, program);
    run_commands(router, program, kWarmUp);
    Tracer tracer(running.pid(), router.store.folder() + "/calls");
    run_commands(router, program, kCommands);
    return tracer.stop();
}

double each(const std::map<std::string, long>& calls, const std::string& name) {
    const auto found = calls.find(name);
    return found == calls.end() ? 0 : static_cast<double>(found->second) / kCommands;
}

}  // namespace

void measure_counts(Report& report) {
    Router router;
    const Program agent{{}, dro_test::kNotificationPort};
    const auto least = [&] { return Program{command_floor(router), kFloorPort}; };
    const Usage ours = usage_each(router, [&] { return agent; });
    const Usage floor = usage_each(router, least);
    report.fact("each command, context switches", "", ours.switches, floor.switches);
    report.fact("each command, processor time", "us", ours.microseconds, floor.microseconds);
    const auto ourCalls = calls_of(router, agent);
    const auto floorCalls = calls_of(router, least());
    report.fact("each command, system calls", "", each(ourCalls, "total"), each(floorCalls, "total"));
    for (const auto& [name, count] : ourCalls) {
        if (name != "total" && count >= kCommands) {
            report.fact("each command, system calls: " + name, "", each(ourCalls, name), each(floorCalls, name));
        }
    }
}

}  // namespace bench

// What the cloud sees of many routers: the bytes of a request, the processor time that it takes the cloud, and what an
// agent does while the cloud is away.
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "dro_durations.h"
#include "roads.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kPath = "syncCD/";
constexpr std::size_t kEventSize = 700;    // an event of a new device, of ordinary size
constexpr std::size_t kListSize = 20'000;  // a list of some 45 devices

std::string body_of(std::size_t size) {
    return R"({"cd":")" + std::string(size, 'x') + R"("})";
}

// Gives the loopback packets as long as a real network's, instead of its own of 64 KiB, while it lives.
class RealPackets {
 public:
    RealPackets() : before_(change(SIOCGIFMTU, 0)) {
        if (before_ < 0 || change(SIOCSIFMTU, kUsual) < 0) {
            throw std::runtime_error("the loopback's packets cannot be set");
        }
    }
    RealPackets(const RealPackets&) = delete;
    RealPackets& operator=(const RealPackets&) = delete;
    ~RealPackets() { change(SIOCSIFMTU, before_); }

 private:
    static constexpr int kUsual = 1500;

    // The size afterwards, or -1.
    static int change(unsigned long what, int size) {
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        request.ifr_mtu = size;
        const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int result = ioctl(any, what, &request);
        close(any);
        return result == 0 ? request.ifr_mtu : -1;
    }

    int before_;
};

void report_wire(Report& report, const std::string& what, const Wire& wire) {
    report.fact("wire, " + what + ", sent", "bytes", wire.sent);
    report.fact("wire, " + what + ", received", "bytes", wire.received);
    report.fact("wire, " + what + ", packets", "", wire.segmentsSent + wire.segmentsReceived);
}

void measure_wire(Report& report) {
    const Router router;
    const RealPackets real;
    const BarePost post = router.bare_post(kPath);
    report_wire(report, "handshake", post.measure(""));
    report_wire(report, "event", post.measure(body_of(kEventSize)));
    report_wire(report, "list", post.measure(body_of(kListSize)));
}

double processor_time(int whose) {
    rusage used{};
    getrusage(whose, &used);
    const auto seconds = [](const timeval& time) {
        constexpr double kMicro = 1e-6;
        return static_cast<double>(time.tv_sec) + kMicro * static_cast<double>(time.tv_usec);
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

// Requests that `clients` bare programs make in `seconds`, each on a fresh connection.
long requests_of(const Router& router, int clients, int seconds, const std::string& bodyFile) {
    struct Close {
        void operator()(std::FILE* pipe) const { pclose(pipe); }
    };
    std::vector<std::unique_ptr<std::FILE, Close>> pipes;
    const std::string command = std::string(DRO_BENCH_BARE_CLIENT) + " " + router.cloud.base_url() + kPath + " " +
                                ca_bundle() + " " + std::to_string(seconds) + " <" + bodyFile;
    for (int client = 0; client < clients; ++client) {
        pipes.emplace_back(popen(command.c_str(), "re"));
    }
    long all = 0;
    for (const auto& pipe : pipes) {
        long requests = 0;
        if (!pipe || std::fscanf(pipe.get(), "%ld", &requests) != 1) {
            throw std::runtime_error("a bare client failed");
        }
        all += requests;
    }
    return all;
}

void measure_load(Report& report) {
    constexpr int kSeconds = 4;
    constexpr double kMicroseconds = 1e6;
    Router router;
    const std::string bodyFile = router.store.folder() + "/body";
    std::ofstream(bodyFile) << body_of(kEventSize) << std::flush;
    for (const int clients : {1, 2, 4, 8, 32}) {
        const double cloudBefore = processor_time(RUSAGE_SELF);
        const double clientsBefore = processor_time(RUSAGE_CHILDREN);
        const auto requests = static_cast<double>(requests_of(router, clients, kSeconds, bodyFile));
        const double cloud = processor_time(RUSAGE_SELF) - cloudBefore;
        const double theirs = processor_time(RUSAGE_CHILDREN) - clientsBefore;
        router.cloud.forget();
        const std::string name = std::to_string(clients) + (clients == 1 ? " client" : " clients");
        const Work work{"fleet", static_cast<double>(clients)};
        report.fact(name + ", requests a second", "1/s", requests / kSeconds, {}, work);
        report.fact(name + ", the cloud's processor time a request", "us", kMicroseconds * cloud / requests, {}, work);
        report.fact(name + ", a client's processor time a request", "us", kMicroseconds * theirs / requests, {}, work);
    }
}

// Times at which somebody connects to a cloud that hangs up at once.
std::vector<Clock::time_point> connects(int listening, std::size_t count) {
    std::vector<Clock::time_point> times;
    while (times.size() < count) {
        const int descriptor = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        times.push_back(Clock::now());
        close(descriptor);
    }
    return times;
}

// Two events during an outage: how often each is tried, and for how long the first holds the second up.
void measure_outage(Report& report) {
    constexpr int kPort = 4468;
    constexpr std::size_t kAttempts = 3;
    Router router;
    router.store.set("Drocfg.DroBaseURL", "https://qa.dro.localhost:" + std::to_string(kPort) + "/");
    const int listening = dro_test::occupy(kPort);
    {
        const RunningAgent agent(router);
        for (std::uint32_t row = 0; row < 2; ++row) {
            write_uint(router, "DALHNotifyNDN", "Index", row);
            std::this_thread::sleep_for(kSettle * 10);  // in their order: each event has a thread of its own
        }
        const auto times = connects(listening, kAttempts + 1);
        const auto seconds = [&](std::size_t attempt) {
            return std::chrono::duration<double>(times[attempt] - times[0]).count();
        };
        report.fact("outage, pause between attempts", "s", seconds(1));
        report.fact("outage, attempts and pauses of an event", "s", seconds(kAttempts));
    }
    close(listening);
}

}  // namespace

void measure_fleet(Report& report) {
    measure_wire(report);
    measure_load(report);
    measure_outage(report);
}

}  // namespace bench

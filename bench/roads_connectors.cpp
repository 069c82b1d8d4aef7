// Connectors at once, each with a command after the other. Two limits of the link show, both required: it keeps one
// connection waiting, so that who finds that place taken tries again after a second; and it takes no more for ten
// seconds when it finds more than fifty at once, of which one is being answered while its connector sends the next.

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "roads.h"
#include "router.h"

namespace bench {
namespace {

constexpr const char* kAckPath = "transactionAck/";
constexpr double kMicroseconds = 1e6;

// Which commands have been acknowledged. Follows the cloud on a thread of its own.
class Acknowledged {
 public:
    explicit Acknowledged(const dro_test::TestCloud& cloud) : follower_([this, &cloud] { follow(cloud); }) {}
    Acknowledged(const Acknowledged&) = delete;
    Acknowledged& operator=(const Acknowledged&) = delete;
    ~Acknowledged() {
        done_ = true;
        follower_.join();
    }

    bool wait_for(int command, std::chrono::seconds patience) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return seen_.contains(command); });
    }

 private:
    void follow(const dro_test::TestCloud& cloud) {
        constexpr std::chrono::milliseconds kLook{100};
        for (std::size_t known = 0; !done_;) {
            const auto requests = cloud.wait_for(known + 1, kAckPath, kLook);
            const std::lock_guard lock(mutex_);
            for (; known < requests.size(); ++known) {
                seen_.insert(number_in(requests[known].body));
            }
            changed_.notify_all();
        }
    }

    static int number_in(const std::string& body) {
        constexpr std::string_view kMark = R"("block-)";
        const auto place = body.find(kMark);
        return place == std::string::npos ? -1 : std::stoi(body.substr(place + kMark.size()));
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<int> seen_;
    std::atomic<bool> done_ = false;
    std::thread follower_;
};

struct Connector {
    Samples taken;    // from before the connection to the acknowledgement
    int late = 0;     // commands that took nearly a second or more, which only a second try at connecting does
    int lost = 0;     // commands that were not acknowledged within the patience, though all of them was sent
    int refused = 0;  // commands that the connector could not send

    void run(int first, int count, int port, Acknowledged& acknowledged, std::chrono::seconds patience) {
        constexpr std::chrono::milliseconds kLate{900};
        for (int number = first; number < first + count; ++number) {
            const auto start = Clock::now();
            if (!dro_test::send_message(port, block_command(number))) {
                ++refused;
                continue;
            }
            if (!acknowledged.wait_for(number, patience)) {
                ++lost;
                continue;
            }
            const auto whole = Clock::now() - start;
            late += whole > kLate ? 1 : 0;
            taken.add(whole);
        }
    }
};

// Several connectors' commands, in a round or in all of them.
struct Crowd {
    Samples each;  // a round's time, for each of its commands that were acknowledged
    Samples taken;
    int late = 0;
    int lost = 0;
    int refused = 0;
};

// One round: `connectors` with `count` commands each, until none waits any more.
void run_crowd(Router& router, int port, std::size_t connectors, int count, std::chrono::seconds patience,
               Crowd& crowd) {
    std::vector<Connector> crew(connectors);
    {
        Acknowledged acknowledged(router.cloud);
        std::vector<std::thread> threads;
        for (std::size_t number = 0; number < connectors; ++number) {
            threads.emplace_back([&, number] {
                crew[number].run(static_cast<int>(number) * count, count, port, acknowledged, patience);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    const auto requests = arrived(router.cloud, 1, kAckPath);
    crowd.each.add((requests.back().at - requests.front().at) / requests.size());
    router.cloud.forget();
    for (const Connector& connector : crew) {
        crowd.late += connector.late;
        crowd.lost += connector.lost;
        crowd.refused += connector.refused;
        crowd.taken.add(connector.taken);
    }
}

void measure_crowd(Report& report, Router& router, int connectors) {
    constexpr int kRounds = 3;
    constexpr int kAtLeast = 100;
    constexpr std::chrono::seconds kPatience{4};  // time for two more tries at connecting
    const int count = std::max(4, kAtLeast / connectors);
    Crowd ours;
    Crowd least;
    for (int round = 0; round < kRounds; ++round) {
        run_crowd(router, dro_test::kNotificationPort, static_cast<std::size_t>(connectors), count, kPatience, ours);
        run_crowd(router, kFloorPort, static_cast<std::size_t>(connectors), count, kPatience, least);
    }
    const std::string name = std::to_string(connectors) + (connectors == 1 ? " connector" : " connectors at once");
    const std::string all = "of " + std::to_string(kRounds * connectors * count);
    const Work work{"connectors", static_cast<double>(connectors)};
    report.compare(name + ", delivered to acknowledged", {ours.taken, least.taken}, work);
    report.fact(name + ", commands a second", "1/s", kMicroseconds / ours.each.median(),
                kMicroseconds / least.each.median(), work);
    report.fact(name + ", after a second or more", all, ours.late, least.late, work);
    report.fact(name + ", not at all", all, ours.lost, least.lost, work);
    report.fact(name + ", could not send", all, ours.refused, least.refused, work);
}

// One more than the link takes at once, for a moment, after each answer.
void measure_crowded(Report& report, Router& router) {
    constexpr std::size_t kConnectors = 51;
    constexpr std::chrono::seconds kPatience{15};
    Crowd crowd;
    const auto taken =
        time_of([&] { run_crowd(router, dro_test::kNotificationPort, kConnectors, 2, kPatience, crowd); });
    report.fact("51 connectors at once, 102 commands", "s", std::chrono::duration<double>(taken).count());
}

}  // namespace

void measure_connectors(Report& report) {
    Router router;
    const RunningAgent agent(router);
    const dro_test::AgentProcess floor(router.store, command_floor(router));
    wait_for_port(kFloorPort);
    for (const int connectors : {1, 10, 25, 50}) {
        measure_crowd(report, router, connectors);
    }
    measure_crowded(report, router);
}

}  // namespace bench

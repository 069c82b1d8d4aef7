// Robustness: kills and signals at random moments, a hostile connector, an unreliable cloud, a read-only, full or
// missing store. tests/campaign runs these many times.
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <future>
#include <random>

#include "agent_test.h"
#include "rounds.h"
#include "test_agent.h"

namespace dro_test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// A random delay, not a wait for an event.
void some_time(milliseconds longest) {
    static thread_local std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<long> choose(0, std::chrono::microseconds(longest).count());
    std::this_thread::sleep_for(std::chrono::microseconds(choose(random)));
}

class Attacks : public ProcessTest {
 protected:
    Attacks() { store.set_all({{"DroStatus.dispatcherSupport", "true"}, {"DroCfg.claimState", "true"}}); }

    bool acknowledged(int number) const {
        const auto all = cloud.requests("transactionAck/");
        return std::any_of(all.begin(), all.end(), [number](const Request& request) {
            return json_value(request.body, "transactionId") == std::to_string(number) &&
                   json_value(request.body, "transactionStatus") == "1";
        });
    }
    // Discards earlier requests, sends a command and waits for its acknowledgement.
    void expect_answer() {
        cloud.forget();
        deliver(block_command(++number_));
        ASSERT_TRUE(eventually([this] { return acknowledged(number_); })) << number_;
    }
    // The agent's idle resource use after its first command.
    auto idle(const AgentProcess& agent) {
        EXPECT_TRUE(agent.wait_for_link()) << agent.output();
        const auto threads = agent.threads_and_descriptors().first;
        expect_answer();
        EXPECT_TRUE(eventually([&] { return agent.threads_and_descriptors().first == threads; }));
        return agent.threads_and_descriptors();
    }

    int number_ = 0;
};

// ---- The process ----

TEST_F(Attacks, AKillAtAnyMomentLosesNothingCommittedAndTheNextStartWorks) {
    const int kills = rounds(5, 200);
    int committed = 0;
    for (int i = 0; i < kills; ++i) {
        cloud.forget();
        AgentProcess agent(store);
        const std::jthread killer([&] {
            EXPECT_TRUE(i % 2 == 0 || agent.wait_for_link());
            some_time(milliseconds(50));
            agent.signal(SIGKILL);
        });
        while (agent.running()) {
            store.set_all({{"DALHConfig.ProcessID", "0"}, {"DALHNotifyNDN.Index", std::to_string(++committed % 200)}});
            const bool sent = send_message(kNotificationPort, block_command(++number_));
            eventually([&] { return !sent || acknowledged(number_) || !agent.running(); });
        }
        ASSERT_EQ(agent.wait_exit(), 256 + SIGKILL) << agent.output();
        ASSERT_EQ(store.get("DALHNotifyNDN.Index"), std::to_string(committed % 200));
        // A triggered request is complete, and an acknowledged command has been written. A written command may lack its
        // acknowledgement; the cloud then repeats the command.
        const bool ordered = store.get("DALHConfig.ProcessID") == "1";
        ASSERT_TRUE(ordered || !acknowledged(number_));
        if (ordered) {
            ASSERT_EQ(store.get("DALHConfig.blockCdMAC"), block_address(number_));
            ASSERT_EQ(store.get("DALHConfig.FeatureID"), "7");
        }
    }
    EXPECT_EQ(store.sql("PRAGMA integrity_check"), "ok");
    AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link()) << agent.output();
    expect_answer();
    expect_prompt_end(agent);
    print_figures(kills, " kills among ", committed, " writes");
}

// True once the process has installed its own SIGUSR1 handler. Until then the default action would kill it.
bool handles_end(pid_t process) {
    const std::string status = file_text("/proc/" + std::to_string(process) + "/status");
    const auto at = status.find("SigCgt:");
    return at != std::string::npos && (std::stoull(status.substr(at + 7), nullptr, 16) >> (SIGUSR1 - 1) & 1) != 0;
}

TEST_F(Attacks, Sigusr1StopsTheAgentAtAnyMoment) {
    const Cases<const char*, Answer, const char*, const char*> states{
        // connector registered, the cloud's answer, the log line before the signal, the name of the case
        {"1", kAccepted, nullptr, "start-up"},
        {"0", kAccepted, "=====LOCKed Process..=====\n", "a command"},
        {"0", kAccepted, "NDN Event Matched!\n", "a push"},
        {"0", kEmpty, "No response from DRO Cloud\n", "a pause between attempts"},
        {"1", kEmpty, "No response from DRO Cloud\n", "a pause of the registration"},
        {"0", kAccepted, "Circle Activation Monitoring Thread Started!\n", "a monitor's wait"},
        {"0", kStall, "=====LOCKed Process..=====\n", "a stalled transfer"},
        {"1", kStall, "Registering Device to DROCloud\n", "a stalled transfer of the start"}};
    const int times = rounds(16, 104);
    milliseconds worst{0};
    for (int i = 0; i < times; ++i) {
        const auto& [registered, answer, near, what] = states[static_cast<std::size_t>(i) % states.size()];
        SCOPED_TRACE(what);
        store.set_all({{"JorvagentCfg.jorv_agent_registered", registered}, {"DroStatus.CircleAct", "false"}});
        cloud.down();  // releases stalled requests
        cloud.up();
        cloud.answer_all(answer);
        AgentProcess agent(store);
        const std::jthread load([this](const std::stop_token& done) {
            for (int sent = 0; sent < 20 && !done.stop_requested(); some_time(milliseconds(4))) {
                sent += send_message(kNotificationPort, block_command(sent)) ? 1 : 0;
                store.set_all({{"DALHNotifyNDN.Index", "1"}, {"DroStatus.CircleAct", "true"}});
            }
        });
        ASSERT_TRUE(eventually([&] { return handles_end(agent.pid()); }));
        ASSERT_TRUE(near == nullptr || agent.log().wait_for(near));
        some_time(milliseconds(20));
        worst = std::max(worst, expect_prompt_end(agent));
        ASSERT_FALSE(HasFailure()) << agent.output() << file_text(agent.log().path());
    }
    print_figures(times, " stops, the longest ", worst.count(), " ms");
}

// ---- The connector ----

TEST_F(Attacks, WaitingCommandsAreNotStartedAfterAStop) {
    for (int round = 0; round < 10; ++round) {
        cloud.script("transactionAck/", {kStall});
        AgentProcess agent(store);
        ASSERT_TRUE(agent.wait_for_link()) << agent.output();
        for (std::size_t number = 1; number < 12; ++number) {
            deliver(block_command(static_cast<int>(number)));
            ASSERT_TRUE(agent.log().wait_for("Inside JorvAgentNotification_cbHandler\n", number));
            ASSERT_EQ(cloud.wait_for(1, "transactionAck/").size(), 1U);
        }
        expect_prompt_end(agent);
        EXPECT_EQ(store.get("DALHConfig.blockCdMAC"), block_address(1));
        cloud.release();
        cloud.forget();
    }
}

TEST_F(Attacks, AHostileConnectorDelaysOthersOnlyBriefly) {
    AgentProcess agent(store);
    const auto before = idle(agent);
    send_message(kNotificationPort, std::string(65'791, ' '));
    expect_answer();
    const int slow = connect_to(kNotificationPort);
    for (const char byte : block_command(++number_)) {
        ASSERT_EQ(send(slow, &byte, 1, MSG_NOSIGNAL), 1);
        some_time(milliseconds(10));
    }
    close(slow);
    EXPECT_TRUE(eventually([this] { return acknowledged(number_); }));
    EXPECT_TRUE(eventually([&] { return agent.threads_and_descriptors() == before; }));
    expect_prompt_end(agent);
}

std::size_t occurrences(const std::string& text, const std::string& wanted) {
    const std::size_t at = text.find(wanted);
    return at == std::string::npos ? 0 : 1 + occurrences(text.substr(at + 1), wanted);
}

TEST_F(Attacks, ALinkWithoutDescriptorsPausesAndKeepsEveryConnection) {
    constexpr const char* kLinkLog = "/tmp/libJorvhdlr.log";
    constexpr const char* kFailed = "Accept error.: ";
    fs::remove(kLinkLog);
    AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link()) << agent.output();
    const auto allow_descriptors = [&agent](rlim_t count) {
        const rlimit limit{count, 1024};
        ASSERT_EQ(prlimit(agent.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    };
    rlim_t used = 0;
    while (fs::is_symlink("/proc/" + std::to_string(agent.pid()) + "/fd/" + std::to_string(used))) {
        ++used;
    }
    // poll fails as well when it watches more descriptors than are allowed.
    const Cases<rlim_t, const char*, std::string> cases{{used, kFailed, "accept on the notification port"},
                                                        {2, "Error Ocurred\n: ", "poll"}};
    for (const auto& [allowed, said, call] : cases) {
        allow_descriptors(allowed);
        const auto start = Clock::now();
        auto attempts = std::async(std::launch::async, deliver, block_command(++number_));
        EXPECT_TRUE(eventually([&, &said = said] { return occurrences(agent.output(), said) == 4; }));
        EXPECT_GE(Clock::now() - start, milliseconds(700)) << "pauses of 100, 200 and 400 ms";
        EXPECT_FALSE(acknowledged(number_));
        allow_descriptors(1024);
        EXPECT_TRUE(eventually([this] { return acknowledged(number_); }));
        EXPECT_EQ(attempts.get(), 1);
        EXPECT_EQ(occurrences(file_text(kLinkLog), call + " works again, failures: "), 1U) << call;
    }
    EXPECT_EQ(occurrences(file_text(kLinkLog), "accept on the notification port fails and is retried: "), 1U);
    const std::size_t before = occurrences(agent.output(), kFailed);
    allow_descriptors(2);
    close(connect_to(kNotificationPort));
    EXPECT_TRUE(eventually([&] { return occurrences(agent.output(), kFailed) > before; }));
    expect_prompt_end(agent);
}

TEST_F(Attacks, ManySignalsAndConcurrentCommandsLeaveNoThreadsOrDescriptors) {
    AgentProcess agent(store);
    const auto before = idle(agent);
    const int commands = rounds(100, 10'000);
    std::atomic<long> signals = 0;
    {
        const std::jthread storm([&](const std::stop_token& done) {
            for (; !done.stop_requested(); signals += 2) {
                agent.signal(SIGUSR2);
                agent.signal(SIGPIPE);
            }
        });
        for (int i = 0; i < commands || signals < 10'000; ++i) {
            expect_answer();
            ASSERT_FALSE(HasFailure());
        }
    }
    cloud.forget();
    // The listener's backlog is one connection. Clients beyond that retry, after one second at first.
    const std::size_t together = static_cast<std::size_t>(rounds(8, 50));
    {
        std::vector<std::jthread> crowd;
        while (crowd.size() < together) {
            crowd.emplace_back(deliver, block_command(++number_));
        }
    }
    EXPECT_EQ(cloud.wait_for(together, "transactionAck/").size(), together);
    EXPECT_TRUE(eventually([&] { return agent.threads_and_descriptors() == before; }));
    expect_prompt_end(agent);
    print_figures(commands, " commands, ", signals, " signals, ", together, " at once");
}

Launch quick(int pauseMs, int watchMs = 75'000) {
    return {.quick = true,
            .environment = {{"DROAGENT_QUICK_PAUSE_MS", std::to_string(pauseMs)},
                            {"DROAGENT_QUICK_LIST_WATCH_MS", std::to_string(watchMs)},
                            {"DROAGENT_QUICK_CIRCLE_WATCH_MS", std::to_string(watchMs)}}};
}

// ---- Threads ----

constexpr const char* kFetch = R"({"UUID":"f","cmd":"FETCH_CD","data":{"status":0,"fetchFor":"app"}})";

TEST_F(Attacks, AStalledCloudLimitsTheThreads) {
    constexpr const char* kWatching = "Cdil Timeout Monitoring Thread Started!\n";
    store.set_all({{"DroStatus.cdilSupport", "true"}, {"DALHNotifyCDIL.TotalIndexcount", "0"}});
    AgentProcess agent(store, quick(50, 1000));
    const auto before = idle(agent).first;
    cloud.answer_all(kStall);
    const int times = rounds(200, 5'000);
    std::ptrdiff_t most = 0;
    for (int i = 0; i < times; ++i) {
        deliver(kFetch);
        store.set("DALHNotifyCDIL.CDILstatus", "complete");
        most = std::max(most, agent.threads_and_descriptors().first - before);
    }
    deliver(R"({"UUID":"a","cmd":"ACTIVATE_CIRCLE","data":{"overRide":1}})");
    for (const std::string what : {"cdilTimeout", "CDIL", "CircleAct"}) {
        EXPECT_TRUE(agent.log().wait_for("All 256 places for monitors and producers are taken: none for " + what));
    }
    print_figures(times, " fetches and lists: ", most, " more threads");
    EXPECT_LE(most, 256 + 51) << "256 places and 51 receivers of messages";
    cloud.answer_all(kAccepted);
    cloud.release();
    EXPECT_TRUE(eventually([&] { return agent.threads_and_descriptors().first == before; }));
    const std::size_t watches = agent.log().count(kWatching);
    deliver(kFetch);
    EXPECT_TRUE(agent.log().wait_for(kWatching, watches + 1)) << "the places are free again";
    expect_answer();
    expect_prompt_end(agent);
}

std::string nested(int levels) {
    return levels == 0 ? "0" : R"({"":)" + nested(levels - 1) + "}";
}

TEST_F(Attacks, TheDeepestJsonFitsIntoHalfOfEachStack) {
    constexpr int kDeepest = 1000;  // cJSON's limit
    Launch launch = quick(50, 100);
#ifdef DRO_HALF_STACK
    launch.environment["LD_PRELOAD"] = DRO_HALF_STACK;
#endif
    const std::string more = R"("more":)" + nested(kDeepest - 2) + "}}";
    const std::string answer = R"({"status":1,"reset":false,"claimState":true,"syncTime":)";
    cloud.answer_all(text_answer(answer + nested(kDeepest - 1) + "}"));
    store.set_all({{"CircleStatus.activationStatus", "provisioned"}, {"DroStatus.CircleAct", "true"}});
    AgentProcess agent(store, launch);
    ASSERT_TRUE(agent.wait_for_link()) << agent.output();
    const std::string id = R"({"UUID":"x","cmd":)";
    deliver(id +
            R"("PROVISION_CIRCLE","data":{"circleId":"c","accessToken":"a","refreshToken":"r","localToken":"l",)"
            R"("cloudHost":"h",)" +
            more);
    deliver(id + R"("TOGGLE_CIRCLE_STATE","data":{"toggle":"on",)" + more);
    store.set_all({{"CircleDebug.sorbAgentRunning", "true"},
                   {"DALHNotifyNDN.Index", "1"},
                   {"JorvagentCfg.jorv_agent_registered", "1"}});
    // The answers reach a receiver, two monitors, both delivery threads and the dispatcher.
    EXPECT_EQ(cloud.wait_for(3, "transactionAck/").size(), 3U);
    for (const char* path : {"deviceEvents", "addJorvDeviceId/", "syncCD/"}) {
        EXPECT_EQ(cloud.wait_for(1, path).size(), 1U) << path;
    }
    EXPECT_TRUE(store.wait_for("DROStatus.addJorvdeviceIdDone", "true"));
    expect_answer();
    expect_prompt_end(agent);
}

// ---- The cloud, the store, the clock ----

int run(const char* words) {
    return std::system(words);
}

// While it exists, temporary files are created in a one-megabyte file system.
struct SmallDisk {
    bool there = std::getenv("DRO_TEST_NAMESPACE") != nullptr &&
                 run("mkdir -p /tmp/small && mount -t tmpfs -o size=1m small /tmp/small") == 0;

    SmallDisk() { setenv("TMPDIR", there ? "/tmp/small" : "/tmp", 1); }
    ~SmallDisk() {
        unsetenv("TMPDIR");
        run("umount --quiet --lazy /tmp/small");
    }
};

TEST_F(Attacks, AFailingStoreIsReportedAndSurvived) {
    const SmallDisk disk;
    if (!disk.there) {
        GTEST_SKIP() << "the test has no mount namespace";
    }
    const Cases<const char*, const char*, std::string, std::string> troubles{
        // command that starts the fault, command that ends it, error of a running agent, error of a starting one
        {"cat /dev/zero > /tmp/small/full 2> /dev/null", "rm /tmp/small/full", "disk is full", "disk is full"},
        {"mount --bind /tmp/small /tmp/small && mount -o remount,ro,bind /tmp/small", "umount /tmp/small",
         "its bell file cannot be opened", "read-only"}};
    Launch launch = quick(50);
    launch.folder = store.folder();
    for (const auto& [begin, end, said, saidAtStart] : troubles) {
        SCOPED_TRACE(begin);
        TestStore small;
        set_identity(small);
        small.set("Drocfg.DroBaseURL", cloud.base_url());
        AgentProcess agent(small, launch);
        ASSERT_TRUE(agent.wait_for_link()) << agent.output();
        run(begin);
        // Repeats the command until the remaining space is used.
        ASSERT_TRUE(eventually([&, &said = said] {
            cloud.forget();
            deliver(block_command(++number_));
            return cloud.wait_for(1, "transactionAck/").size() == 1 && agent.output().find(said) != std::string::npos;
        })) << agent.output();
        EXPECT_FALSE(acknowledged(number_));
        run(end);
        expect_answer();
        EXPECT_EQ(small.get("DALHConfig.blockCdMAC"), block_address(number_));
        run(begin);
        expect_prompt_end(agent);
        AgentProcess next(small, launch);
        // The link needs a writable store. After three attempts the agent runs without it.
        if (saidAtStart == said) {
            EXPECT_TRUE(next.log().wait_for("LibJorvhdlr init failed! Re-trying in 5 sec...\n", 3));
            next.signal(SIGUSR2);  // answered once it is parked
            EXPECT_TRUE(next.log().wait_for("sig_usr2 handler.\n"));
            expect_prompt_end(next);
            EXPECT_EQ(next.log().count("Initiating Connection with libJorvhdlr\n"), 3U);
        } else {
            EXPECT_EQ(next.wait_exit(), 1);
        }
        EXPECT_NE(next.output().find(saidAtStart), std::string::npos) << next.output();
        run(end);
    }
}

}  // namespace
}  // namespace dro_test

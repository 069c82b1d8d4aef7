// The agent as a process: its lock, its start, its link, its end.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "agent_process.h"
#include "agent_test.h"
#include "dro_daemon.h"
#include "dro_dal.h"
#include "dro_main.h"
#include "dro_stop.h"
#include "faults.h"

namespace dro_test {
namespace {

class Process : public ::testing::Test {
 protected:
    Process() {
        set_identity(store);
        store.set("Drocfg.DroBaseURL", cloud.base_url());
    }

    TestStore store;
    TestCloud cloud;
};

constexpr const char* kBlockCommand = R"({"UUID":"u","cmd":"BLOCK_CD","data":{"cdMac":"02:00:00:00:00:01"}})";

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

std::string read_whole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The process that holds a lock on the pid file, or 0.
pid_t lock_owner() {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    const int descriptor = open(kPidFile, O_RDWR | O_CLOEXEC);
    fcntl(descriptor, F_GETLK, &whole);
    close(descriptor);
    return whole.l_type == F_UNLCK ? 0 : whole.l_pid;
}

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::chrono::seconds kAtOnce{5};  // they take a second of their own at the end
#else
constexpr std::chrono::seconds kAtOnce{1};
#endif

void expect_prompt_end(AgentProcess& agent) {
    agent.signal(SIGUSR1);
    EXPECT_EQ(agent.wait_exit(kAtOnce), 0);
    EXPECT_FALSE(exists(kPidFile));
}

TEST_F(Process, RefusesArgumentsBeforeItTakesTheLock) {
    Launch launch;
    launch.arguments = {"--help"};
    AgentProcess agent(store, launch);
    EXPECT_EQ(agent.wait_exit(), 255);
    EXPECT_NE(agent.output().find("Cannot parse args. Input valid data from cli\n"), std::string::npos);
    EXPECT_FALSE(exists(kPidFile));
}

TEST_F(Process, StartsInItsOrderTakesACommandAndEndsOnSigusr1) {
    AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link());
    EXPECT_EQ(read_whole(kPidFile), std::to_string(agent.pid()) + "\n");
    EXPECT_EQ(lock_owner(), agent.pid());
    EXPECT_EQ(store.get("JorvagentCfg.jorv_handler_1023"), "localhost:4466");
    EXPECT_EQ(store.get("JorvagentCfg.jorv_handler_event_sink_1023"), "localhost:4455");
    EXPECT_EQ(store.get("DalModuleVersion.DroagentVersion"), "1.3.10");
    EXPECT_EQ(store.get("JorvagentCfg.jorv_force_connection"), "1");
    EXPECT_TRUE(agent.log().in_order(
        {"Starting droagent Version Id is 1.3.10\n", "Getting the jorvId size",
         "!! set_module_version_detail() is called at boot time !!\n", "DroBaseUrl is " + cloud.base_url() + "\n",
         "Getting Registered status from JorvagentCfg table\n",
         "regStatus is false, addJorvdeviceId will call normal registration flow\n",
         "Initiating Connection with libJorvhdlr\n",
         "Callback successfull, jorv_agent_registered is: 0, jorv_agent_claimed is 0,  jorv_agent_connected is: 0\n"}));
    store.set("dalLogCfg.DroagentConfigurationApply", "true");
    EXPECT_TRUE(store.wait_for("dalLogCfg.DroagentConfigurationApply", "false"));
    ASSERT_TRUE(send_message(kNotificationPort, kBlockCommand));
    EXPECT_EQ(cloud.wait_for(1, "transactionAck/").size(), 1U);
    EXPECT_EQ(store.get("DALHConfig.blockCdMAC"), "02:00:00:00:00:01");
    agent.signal(SIGUSR2);
    agent.signal(SIGPIPE);
    EXPECT_TRUE(agent.log().wait_for("sig_usr2 handler.\n"));
    expect_prompt_end(agent);
    EXPECT_TRUE(agent.log().in_order(
        {"sig_usr1 handler.\n", "Bye Bye.....\n", "Exit from SIG_HDLR\n", "Cancel Dispatcher Thread!\n"}));
}

TEST_F(Process, EndsAtOnceInTheMiddleOfATransferOfTheStartAndOfAPause) {
    cloud.answer_all(stall());
    {
        AgentProcess agent(store);
        ASSERT_TRUE(agent.wait_for_link());
        ASSERT_TRUE(send_message(kNotificationPort, kBlockCommand));
        ASSERT_EQ(cloud.wait_for(1).size(), 1U);
        expect_prompt_end(agent);
    }
    store.set("JorvagentCfg.jorv_agent_registered", "1");
    {
        AgentProcess agent(store);
        ASSERT_EQ(cloud.wait_for(1, "addJorvDeviceId/").size(), 1U);
        expect_prompt_end(agent);
    }
    store.set("JorvagentCfg.jorv_agent_registered", "0");
    const int taken = occupy(kEventPort);
    AgentProcess agent(store);
    EXPECT_TRUE(agent.log().wait_for("LibJorvhdlr init failed! Re-trying in 5 sec...\n"));
    expect_prompt_end(agent);
    close(taken);
}

TEST_F(Process, TreatsAPidFileByWhatItHolds) {
    const std::string ours = std::to_string(getpid());
    const std::string elsewhere = store.folder() + "/elsewhere";
    const char* const noNumber = "Error reading data from pid file - possibly data is in wrong format\n";
    const struct {
        std::string content;
        const char* said;  // null: it starts
        bool behindLink = false;
    } cases[] = {{"99999999\n", nullptr},
                 {"999999991\n", nullptr},
                 {"hello\n", noNumber},
                 {"", noNumber},
                 {ours, "Daemon is already running.\n"},
                 {"99999999\n", "Error opening pid file for reading 40\n", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content);
        std::ofstream(c.behindLink ? elsewhere : kPidFile) << c.content;
        if (c.behindLink) {
            std::filesystem::create_symlink(elsewhere, kPidFile);
        }
        AgentProcess agent(store);
        if (c.said == nullptr) {
            EXPECT_TRUE(agent.wait_for_link()) << agent.output();
            expect_prompt_end(agent);
        } else {
            EXPECT_EQ(agent.wait_exit(), 1);
            EXPECT_NE(agent.output().find(c.said), std::string::npos) << agent.output();
            EXPECT_NE(agent.output().find("failed to lock the pid file.\n"), std::string::npos);
            EXPECT_EQ(read_whole(kPidFile), c.content);
            unlink(kPidFile);
        }
    }
    EXPECT_EQ(read_whole(elsewhere), "99999999\n");
}

TEST_F(Process, LocksOnlyWhatItCanWriteAndJudge) {
    std::ofstream(kPidFile) << "1\n";
    {
        const FailCalls fault(Call::kill, EPERM);  // somebody else's process
        EXPECT_EQ(dro::lock_process(kPidFile), -1);
    }
    unlink(kPidFile);
    {
        const FailCalls fault(Call::write, ENOSPC);
        EXPECT_EQ(dro::lock_process(kPidFile), -1);
    }
    EXPECT_FALSE(exists(kPidFile));
    const int descriptor = dro::lock_process(kPidFile);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(dro::unlock_process(kPidFile, descriptor), 0);
    EXPECT_FALSE(exists(kPidFile));
    EXPECT_EQ(dro::unlock_process(kPidFile, -1), -1) << "a missing file is a failed removal";
}

TEST_F(Process, LivesWithoutALinkAfterThreeAttempts) {
    const int taken = occupy(kNotificationPort);
    Launch launch;
    launch.quick = true;
    launch.environment = {{"DROAGENT_QUICK_PAUSE_MS", "50"}};
    AgentProcess agent(store, launch);
    EXPECT_TRUE(agent.log().wait_for("LibJorvhdlr init failed! Re-trying in 5 sec...\n", 3));
    // A parked agent answers this signal; one in start-up does not.
    agent.signal(SIGUSR2);
    EXPECT_TRUE(agent.log().wait_for("sig_usr2 handler.\n"));
    expect_prompt_end(agent);
    EXPECT_EQ(agent.log().count("Initiating Connection with libJorvhdlr\n"), 3U);
    close(taken);
}

TEST_F(Process, SaysWhyItCannotStart) {
    const struct {
        const char* variable;
        std::string value;
        const char* said;
    } cases[] = {{"HAB_STORE", store.folder() + "/none.db", "Couldn't init HAB! is HAB running?\n"},
                 {"HAB_LOG_FILE", store.folder(), "Couldn't init dynamic log library?\n"}};
    for (const auto& c : cases) {
        Launch launch;
        launch.environment = {{c.variable, c.value}};
        AgentProcess agent(store, launch);
        EXPECT_EQ(agent.wait_exit(), 1);
        EXPECT_NE(agent.output().find(c.said), std::string::npos) << c.said << agent.output();
        EXPECT_FALSE(exists(kPidFile));
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto startWithoutSignals = [] {
        const FailCalls fault(Call::sigaction, EINVAL);
        std::array<char, 11> name{"./droagent"};
        std::array<char*, 2> arguments{name.data(), nullptr};
        dro::droagent_main(1, arguments.data());
    };
    EXPECT_EXIT(startWithoutSignals(), ::testing::ExitedWithCode(1), "Failed to setup signal handers.\n");
    EXPECT_FALSE(exists(kPidFile));
}

TEST_F(Process, SaysGoodByeAsFarAsTheReasonGoes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr int kInputClosed = 1;
    constexpr int kFileGone = 2;
    constexpr int kSessionGone = 4;
    const struct {
        int released;
        const char* said;
        std::vector<const char*> reasons;
    } cases[] = {{0, "Exit from LOCK_PROCESS", {"LOCK_PROCESS"}},
                 {kInputClosed | kFileGone, "Exit from SIG_HDLR", {"SIG_HDLR", "SIG_EXIT"}},
                 {kInputClosed | kFileGone | kSessionGone,
                  "Exit from Internal exit",
                  {"DAL_INIT", "GET_INFO", "TV_SUBSCRIBE", "DROBASE_URL"}},
                 {0, "Bye Bye.....\n$", {"another"}}};
    const auto leave = [](const char* reason) {
        dro::lock_process(kPidFile);
        dro::dal_init();
        dro::stop_requested();  // makes its descriptor now, lest it take the place of the closed one
        dro::good_bye(reason);
        const int released = (fcntl(STDIN_FILENO, F_GETFD) < 0 ? kInputClosed : 0) |
                             (exists(kPidFile) ? 0 : kFileGone) | (dro::dal_get_handle() == nullptr ? kSessionGone : 0);
        unlink(kPidFile);
        _exit(released);
    };
    for (const auto& c : cases) {
        for (const char* reason : c.reasons) {
            EXPECT_EXIT(leave(reason), ::testing::ExitedWithCode(c.released), c.said) << reason;
        }
    }
}

TEST_F(Process, HoldsItsSecretsInPiecesOnly) {
    AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link());
    const std::string bytes = read_whole("/proc/" + std::to_string(agent.pid()) + "/exe");
    const std::string keyPieces[][2] = {{"LABPROD0LABPROD0LABPROD0LABPROD0", "LABPROD1LABPROD1LABPROD1LABPROD1"},
                                        {"0123456789abcd", "ef0123456789abc"}};
    for (const std::string secret : {"lab-only-secret!", "6c61622d6f6e6c792d73656372657421"}) {
        EXPECT_EQ(bytes.find(secret), std::string::npos) << secret;
    }
    for (const auto& [first, second] : keyPieces) {
        EXPECT_EQ(bytes.find(first + second), std::string::npos) << first;
        EXPECT_NE(bytes.find(first), std::string::npos) << first;
        EXPECT_NE(bytes.find(second), std::string::npos) << second;
    }
}

}  // namespace
}  // namespace dro_test

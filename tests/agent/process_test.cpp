// The agent as a process: its lock, its link, its end.
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "agent_process.h"
#include "agent_test.h"

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

TEST_F(Process, RefusesArgumentsBeforeItTakesTheLock) {
    Launch launch;
    launch.arguments = {"--help"};
    AgentProcess agent(store, launch);
    EXPECT_EQ(agent.wait_exit(), 255);
    EXPECT_NE(agent.output().find("Cannot parse args. Input valid data from cli\n"), std::string::npos);
    EXPECT_FALSE(exists(kPidFile));
}

TEST_F(Process, TakesACommandAndEndsOnSigusr1) {
    AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link());
    EXPECT_EQ(store.get("JorvagentCfg.jorv_handler_1023"), "localhost:4466");
    EXPECT_EQ(store.get("JorvagentCfg.jorv_handler_event_sink_1023"), "localhost:4455");
    EXPECT_EQ(store.get("DalModuleVersion.DroagentVersion"), "1.3.10");
    EXPECT_EQ(store.get("JorvagentCfg.jorv_force_connection"), "1");
    ASSERT_TRUE(send_message(kNotificationPort, kBlockCommand));
    EXPECT_EQ(cloud.wait_for(1, "transactionAck/").size(), 1U);
    EXPECT_EQ(store.get("DALHConfig.blockCdMAC"), "02:00:00:00:00:01");
    agent.signal(SIGUSR2);
    agent.signal(SIGPIPE);
    EXPECT_TRUE(agent.log().wait_for("sig_usr2 handler.\n"));
    agent.signal(SIGUSR1);
    EXPECT_EQ(agent.wait_exit(std::chrono::seconds(5)), 0);
    EXPECT_FALSE(exists(kPidFile));
    EXPECT_TRUE(agent.log().in_order({"Bye Bye.....\n", "Exit from SIG_HDLR\n", "Cancel Dispatcher Thread!\n"}));
}

TEST_F(Process, EndsInTheMiddleOfAStalledTransfer) {
    cloud.answer_all(stall());
    AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link());
    ASSERT_TRUE(send_message(kNotificationPort, kBlockCommand));
    ASSERT_EQ(cloud.wait_for(1).size(), 1U);
    agent.signal(SIGUSR1);
    EXPECT_EQ(agent.wait_exit(std::chrono::seconds(5)), 0);
}

TEST_F(Process, EndsInTheMiddleOfAStalledStart) {
    store.set("JorvagentCfg.jorv_agent_registered", "1");
    cloud.answer_all(stall());
    AgentProcess agent(store);
    ASSERT_EQ(cloud.wait_for(1, "addJorvDeviceId/").size(), 1U);
    agent.signal(SIGUSR1);
    EXPECT_EQ(agent.wait_exit(std::chrono::seconds(5)), 0);
    EXPECT_FALSE(exists(kPidFile));
}

TEST_F(Process, TreatsAPidFileByWhatItHolds) {
    const struct {
        const char* content;
        bool starts;
        const char* output;
    } cases[] = {
        {"99999999\n", true, ""},
        {"hello\n", false, "Error reading data from pid file - possibly data is in wrong format"},
        {"", false, "Error reading data from pid file - possibly data is in wrong format"},
        {"1\n", false, "Daemon is already running."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content);
        std::ofstream(kPidFile) << c.content;
        AgentProcess agent(store);
        if (c.starts) {
            EXPECT_TRUE(agent.wait_for_link());
            agent.signal(SIGUSR1);
            EXPECT_EQ(agent.wait_exit(), 0);
            EXPECT_FALSE(exists(kPidFile));
        } else {
            EXPECT_EQ(agent.wait_exit(), 1);
            EXPECT_NE(agent.output().find("failed to lock the pid file.\n"), std::string::npos);
            unlink(kPidFile);
        }
    }
}

TEST_F(Process, LivesWithoutALinkAfterThreeAttempts) {
    const int taken = occupy(kNotificationPort);
    Launch launch;
    launch.quick = true;
    launch.environment = {{"DROAGENT_QUICK_PAUSE_MS", "50"}};
    AgentProcess agent(store, launch);
    EXPECT_TRUE(agent.log().wait_for("LibJorvhdlr init failed! Re-trying in 5 sec...\n", 3));
    agent.signal(SIGUSR1);
    EXPECT_EQ(agent.wait_exit(), 0);
    EXPECT_EQ(agent.log().count("Initiating Connection with libJorvhdlr\n"), 3U);
    close(taken);
}

TEST_F(Process, SaysThatTheStoreIsMissing) {
    Launch launch;
    launch.environment = {{"HAB_STORE", store.folder() + "/none.db"}};
    AgentProcess agent(store, launch);
    EXPECT_EQ(agent.wait_exit(), 1);
    EXPECT_NE(agent.output().find("Couldn't init HAB! is HAB running?\n"), std::string::npos);
    EXPECT_FALSE(exists(kPidFile));
}

}  // namespace
}  // namespace dro_test

// The connector link: one message a connection, its limits, and an init that leaves nothing open when it fails.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent_process.h"
#include "libJorvhdlr/libJorvhdlr.h"
#include "test_store.h"

namespace dro_test {
namespace {

std::mutex g_mutex;
std::vector<std::string> g_messages;
std::atomic<int> g_statuses{0};

void on_message(const char* message) {
    const std::lock_guard lock(g_mutex);
    g_messages.emplace_back(message);
}
void on_status(int /*registered*/, int /*claimed*/, int /*connected*/) {
    ++g_statuses;
}

std::vector<std::string> messages() {
    const std::lock_guard lock(g_mutex);
    return g_messages;
}

class Link : public ::testing::Test {
 protected:
    Link() {
        jorv::set_timings({std::chrono::milliseconds(100), std::chrono::milliseconds(100)});
        g_messages.clear();
        g_statuses = 0;
    }
    ~Link() override { jorv::Jorv_Handler_deInit(); }

    static int open() {
        return jorv::Jorv_Handler_init("1023", kNotificationPort, on_message, kEventPort, on_message, on_status);
    }

    TestStore store;
};

TEST_F(Link, DeliversWholeMessagesOnly) {
    ASSERT_EQ(open(), 0);
    EXPECT_EQ(g_statuses, 1);
    ASSERT_TRUE(send_message(kNotificationPort, "first"));
    ASSERT_TRUE(eventually([] { return messages().size() == 1; }));
    close(connect_to(kNotificationPort));  // says nothing
    const int stalled = connect_to(kEventPort);
    ASSERT_EQ(send(stalled, "half", 4, 0), 4);
    ASSERT_TRUE(send_message(kEventPort, "second"));
    ASSERT_TRUE(eventually([] { return messages().size() == 2; }));
    EXPECT_TRUE(eventually([] { return jorv::Jorv_Handler_receivers() == 0; }));
    close(stalled);
    ASSERT_TRUE(send_message(kNotificationPort, std::string("cut\0here", 8)));
    ASSERT_TRUE(eventually([] { return messages().size() == 3; }));
    EXPECT_EQ(messages(), (std::vector<std::string>{"first", "second", "cut"}));
}

TEST_F(Link, CutsWhatIsTooLong) {
    ASSERT_EQ(open(), 0);
    send_message(kNotificationPort, std::string(70'000, 'x'));
    ASSERT_TRUE(eventually([] { return messages().size() == 1; }));
    EXPECT_GE(messages()[0].size(), 65'536U);
    EXPECT_LE(messages()[0].size(), 65'791U);
}

TEST_F(Link, ReportsEveryChangeOfTheConnector) {
    ASSERT_EQ(open(), 0);
    store.set("JorvagentCfg.jorv_agent_claimed", "1");
    EXPECT_TRUE(eventually([] { return g_statuses >= 2; }));
}

TEST_F(Link, FailsCleanlyAndMayBeTriedAgain) {
    EXPECT_EQ(jorv::Jorv_Handler_init("1023", 1, nullptr, 2, nullptr, nullptr), jorv::kNoCallbacks);
    const int taken = occupy(kEventPort);
    EXPECT_EQ(open(), jorv::kEventSocketFailed);
    EXPECT_EQ(connect_to(kNotificationPort), -1);
    close(taken);
    EXPECT_EQ(jorv::Jorv_Handler_init("nobody", kNotificationPort, on_message, 0, nullptr, nullptr),
              jorv::kStoreFailed);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(jorv::Jorv_Handler_deInit(), 1);
    EXPECT_EQ(connect_to(kNotificationPort), -1);
    errno = 0;
    EXPECT_EQ(jorv::Jorv_Handler_InitNetwrksock(70'000), -4);
    EXPECT_EQ(errno, ERANGE);
}

TEST_F(Link, KeepsOneOldLogAndItsOwnModes) {
    const std::string path = store.folder() + "/link.log";
    const char* const before = jorv::log_file;
    jorv::log_file = path.c_str();
    std::ofstream(path) << std::string(1024 * 1024, 'x');
    jorv::jorvLog(jorv::ERROR, "after %d\n", 1);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_LT(status.st_size, 200);
    EXPECT_EQ(stat((path + ".1").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 1024 * 1024);
    jorv::log_file = before;
}

}  // namespace
}  // namespace dro_test

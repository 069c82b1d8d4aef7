// The connector link: one message per connection, its limits, and a failing init that leaves nothing open.
#include <fnmatch.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "faults.h"
#include "libJorvhdlr.h"
#include "pipeline.h"
#include "test_agent.h"

namespace dro_test {
namespace {

std::mutex g_mutex;
Texts g_messages;
Texts g_statuses;  // "011": not registered, but claimed and connected

void on_message(const char* message) {
    const std::lock_guard lock(g_mutex);
    g_messages.emplace_back(message);
}
void on_status(int registered, int claimed, int connected) {
    const std::lock_guard lock(g_mutex);
    g_statuses.push_back(std::to_string(registered) + std::to_string(claimed) + std::to_string(connected));
}

Texts seen(const Texts& list) {
    const std::lock_guard lock(g_mutex);
    return list;
}

bool listens(int port) {
    const int descriptor = connect_to(port);
    return descriptor >= 0 && close(descriptor) == 0;
}

// Opens connections whose receivers wait for a message until the connections are closed.
std::vector<int> crowd(int size) {
    std::vector<int> connections;
    for (int i = 1; i <= size; ++i) {
        connections.push_back(connect_to(kNotificationPort));
        EXPECT_TRUE(eventually([i] { return jorv::Jorv_Handler_receivers() == i; }));
    }
    return connections;
}

class Link : public ::testing::Test {
 protected:
    Link() : log_path_(store.folder() + "/link.log") {
        jorv::timings() = {std::chrono::milliseconds(500), std::chrono::milliseconds(100)};
        jorv::log_file = log_path_.c_str();
        g_messages.clear();
        g_statuses.clear();
    }
    ~Link() override {
        jorv::Jorv_Handler_deInit();
        // The link does not wait for receivers.
        EXPECT_TRUE(eventually([] { return jorv::Jorv_Handler_receivers() == 0; }));
        jorv::log_file = "/tmp/libJorvhdlr.log";
    }

    static int open() {
        return jorv::Jorv_Handler_init("1023", kNotificationPort, on_message, kEventPort, on_message, on_status);
    }
    bool logged(const std::string& text) const { return file_text(log_path_).find(text) != std::string::npos; }

    TestStore store;
    const std::string log_path_;
};

TEST_F(Link, DeliversWholeMessagesOnly) {
    ASSERT_EQ(open(), 0);
    const auto deliver = [](int port, const std::string& message) {
        const std::size_t before = seen(g_messages).size();
        send_message(port, message);
        EXPECT_TRUE(eventually([before] { return seen(g_messages).size() == before + 1; }));
        return seen(g_messages).back();
    };
    EXPECT_EQ(deliver(kNotificationPort, "first"), "first");
    EXPECT_TRUE(listens(kNotificationPort));  // sends nothing
    const int stalled = connect_to(kEventPort);
    ASSERT_EQ(send(stalled, "half", 4, 0), 4);
    EXPECT_EQ(deliver(kEventPort, "second"), "second");
    EXPECT_TRUE(eventually([] { return jorv::Jorv_Handler_receivers() == 0; }));
    close(stalled);
    EXPECT_TRUE(logged("jorvStreamReceiver socket reading: Resource temporarily unavailable"));
    EXPECT_EQ(deliver(kNotificationPort, std::string("cut\0here", 8)), "cut");
    const std::size_t longest = deliver(kNotificationPort, std::string(70'000, 'x')).size();
    EXPECT_TRUE(longest >= 65'536U && longest <= 65'791U) << longest;
}

TEST_F(Link, ReportsTheConnectorAtOnceAndOnEveryChange) {
    store.set("JorvagentCfg.jorv_agent_connected", "1");
    ASSERT_EQ(open(), 0);
    EXPECT_EQ(seen(g_statuses).at(0), "001");
    store.set("JorvagentCfg.jorv_agent_claimed", "1");
    EXPECT_TRUE(eventually([] { return seen(g_statuses).back() == "011"; }));
    EXPECT_TRUE(logged("at line 444 and func jorvagentChgNtf : Value of err is 0\n"));
    EXPECT_TRUE(logged("jorvagentChgNtf 0, 1, 1\n"));
}

TEST_F(Link, OpensOnlyPortsWithACallback) {
    for (const int left : {0, 1, 2}) {
        EXPECT_EQ(jorv::Jorv_Handler_init("1023", kNotificationPort, left == 0 ? nullptr : on_message, kEventPort,
                                          left == 1 ? nullptr : on_message, left == 2 ? nullptr : on_status),
                  0);
        EXPECT_EQ(listens(kNotificationPort), left != 0);
        EXPECT_EQ(listens(kEventPort), left != 1);
        EXPECT_EQ(seen(g_statuses).empty(), left == 2);
        EXPECT_EQ(jorv::Jorv_Handler_deInit(), 1);
        g_statuses.clear();
    }
    EXPECT_EQ(jorv::Jorv_Handler_init("1023", 1, nullptr, 2, nullptr, nullptr), jorv::kNoCallbacks);
}

TEST_F(Link, FailsCleanlyAndMayBeTriedAgain) {
    for (const int port : {kNotificationPort, kEventPort}) {
        const int taken = occupy(port);
        EXPECT_EQ(open(), port == kNotificationPort ? jorv::kNotificationSocketFailed : jorv::kEventSocketFailed);
        close(taken);
        EXPECT_TRUE(logged("Jorv_Handler_InitNetwrksock failed for port " + std::to_string(port) + "\n"));
    }
    for (const Call call : {Call::socketPair, Call::threadCreate}) {
        const FailCalls fault(call, EMFILE);
        EXPECT_EQ(open(), call == Call::socketPair ? jorv::kExitChannelFailed : jorv::kListenerFailed);
    }
    EXPECT_EQ(jorv::Jorv_Handler_init("nobody", kNotificationPort, on_message, 0, nullptr, nullptr),
              jorv::kStoreFailed);
    EXPECT_TRUE(logged(std::string("failed init jorvagent (") + hab_error_string(HAB_NOSUCH_ITEM) + ")\n"));
    EXPECT_FALSE(listens(kNotificationPort));
    EXPECT_FALSE(listens(kEventPort));
    EXPECT_TRUE(seen(g_statuses).empty());
    EXPECT_EQ(open(), 0);
    EXPECT_TRUE(listens(kNotificationPort));
    EXPECT_EQ(jorv::Jorv_Handler_deInit(), 1);
    EXPECT_FALSE(listens(kNotificationPort));
    for (const int port : {70'000, -1}) {
        errno = 0;
        EXPECT_EQ(jorv::Jorv_Handler_InitNetwrksock(port), -4);
        EXPECT_EQ(errno, ERANGE);
    }
}

TEST_F(Link, ExitsTheProcessWithoutAThreadForAMessage) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto refuse = [] {
        open();
        const FailCalls fault(Call::threadCreate, EAGAIN);
        connect_to(kNotificationPort);
        pause();
    };
    EXPECT_EXIT(refuse(), ::testing::ExitedWithCode(1), "Failed to start Jorvhdlr thread: ");
}

TEST_F(Link, AnswersOnLoopbackOnly) {
    constexpr in_addr_t kElsewhere = 0xC0000201;  // 192.0.2.1, an address of this machine
    if (std::system("ip address add 192.0.2.1/24 dev lo") != 0) {
        GTEST_SKIP() << "the test has no network namespace";
    }
    ASSERT_EQ(open(), 0);
    for (const int port : {kNotificationPort, kEventPort}) {
        EXPECT_TRUE(listens(port));
        EXPECT_EQ(connect_to(port, kElsewhere), -1);
        EXPECT_EQ(errno, ECONNREFUSED);
    }
    EXPECT_EQ(std::system("ip address delete 192.0.2.1/24 dev lo"), 0);
}

TEST_F(Link, PausesForACrowdOfReceiversAndStillClosesAtOnce) {
    jorv::timings() = {kPatience, std::chrono::milliseconds(20)};
    ASSERT_EQ(open(), 0);
    auto connections = crowd(51);
    EXPECT_TRUE(eventually([this] { return logged("Thread Counter over Value = 51\n"); }));
    ASSERT_TRUE(send_message(kNotificationPort, "late"));
    EXPECT_EQ(jorv::Jorv_Handler_receivers(), 51);
    EXPECT_TRUE(seen(g_messages).empty());
    std::for_each(connections.begin(), connections.end(), close);
    EXPECT_TRUE(eventually([] { return seen(g_messages) == Texts{"late"}; }));
    EXPECT_TRUE(eventually([] { return jorv::Jorv_Handler_receivers() == 0; }));
    jorv::timings().overloaded = kPatience;
    std::filesystem::remove(log_path_);
    connections = crowd(51);
    EXPECT_TRUE(eventually([this] { return logged("Thread Counter over Value = 51\n"); }));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(jorv::Jorv_Handler_deInit(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - before, kPatience / 2);
    std::for_each(connections.begin(), connections.end(), close);
}

TEST_F(Link, KeepsOneOldLogAndRefusesForeignFiles) {
    constexpr std::size_t kLargest = std::size_t{1024} * 1024;
    std::ofstream(log_path_) << std::string(kLargest, 'x');
    jorv::jorvLog(jorv::ERROR, "after %d\n", 1);
    EXPECT_EQ(std::filesystem::status(log_path_).permissions(), std::filesystem::perms(0600));
    const std::string line = file_text(log_path_);
    EXPECT_EQ(fnmatch("20*-*-* *:*:* (*):jorv_log.cpp:*\tERROR: after 1\n", line.c_str(), 0), 0) << line;
    EXPECT_EQ(std::filesystem::file_size(log_path_ + ".1"), kLargest);
    // A symbolic link to a file of another program: the file stays unchanged.
    std::filesystem::remove(log_path_);
    std::filesystem::create_symlink(log_path_ + ".1", log_path_);
    jorv::jorvLog(jorv::ERROR, "lost\n");
    EXPECT_EQ(std::filesystem::file_size(log_path_ + ".1"), kLargest);
    // A pipe without a reader must not block the caller.
    std::filesystem::remove(log_path_);
    ASSERT_EQ(mkfifo(log_path_.c_str(), 0600), 0);
    jorv::jorvLog(jorv::ERROR, "%s\n", std::string(kLargest, 'x').c_str());
}

}  // namespace
}  // namespace dro_test

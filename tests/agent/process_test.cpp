// The agent as a process: lock, start, link, output, exit.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <future>

#include "dro_daemon.h"
#include "dro_dal.h"
#include "dro_main.h"
#include "dro_stop.h"
#include "faults.h"
#include "pipeline.h"
#include "test_agent.h"
#include "unread_output.h"

namespace dro_test {
namespace {

using Process = ProcessTest;

// Runs "habctl status" and returns its exit status.
int status(const std::string& options = "") {
    return WEXITSTATUS(std::system((HABCTL " status >/dev/null 2>&1 " + options).c_str()));
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST_F(Process, StartsInOrderAcceptsACommandIsProbedAndExitsOnSigusr1) {
    std::ofstream(kPidFile) << "999999991\n";  // left by a killed agent
    EXPECT_EQ(status("--probe"), HAB_SHUTDOWN);
    auto ready = std::async(std::launch::async, status, "--wait 20");
    store.set("dalLogCfg.DroagentLogMask", "5");
    AgentProcess agent(store);
    EXPECT_EQ(ready.get(), HAB_OK);
    ASSERT_TRUE(agent.wait_for_link());
    EXPECT_EQ(status("--probe"), HAB_OK);
    EXPECT_EQ(file_text(kPidFile), std::to_string(agent.pid()) + "\n");
    EXPECT_EQ(store.get("JorvagentCfg.jorv_handler_event_sink_1023"), "localhost:4455");
    EXPECT_EQ(store.get("JorvagentCfg.jorv_force_connection"), "1");
    EXPECT_TRUE(agent.log().in_order({"Starting droagent Version Id is 1.3.10\n", "Getting the jorvId size",
                                      "!! set_module_version_detail() is called at boot time !!\n",
                                      "DroBaseUrl is " + cloud.base_url() + "\n",
                                      "Getting Registered status from JorvagentCfg table\n",
                                      "regStatus is false, addJorvdeviceId will call normal registration flow\n",
                                      "Initiating Connection with libJorvhdlr\n"}));
    EXPECT_EQ(agent.log().texts(4), Texts{});
    ASSERT_TRUE(send_message(kNotificationPort, block_command(1)));
    EXPECT_EQ(cloud.wait_for(1, "transactionAck/").size(), 1U);
    store.set("dalLogCfg.DroagentLogMask", "7");  // notices too, once a probe reloads it
    cloud.script("deviceEvents", {kStall});       // holds up the notices
    store.set("CircleDebug.rClientStatus", "connected");
    ASSERT_EQ(cloud.wait_for(1, "deviceEvents").size(), 1U);
    EXPECT_EQ(status("--probe"), 10);
    auto recovered = std::async(std::launch::async, status, "--probe --wait 20");
    cloud.release();
    EXPECT_EQ(recovered.get(), HAB_OK);
    agent.signal(SIGUSR2);
    agent.signal(SIGPIPE);
    EXPECT_TRUE(agent.log().wait_for("sig_usr2 handler.\n"));
    expect_prompt_end(agent);
    EXPECT_TRUE(agent.log().in_order(
        {"sig_usr1 handler.\n", "Bye Bye.....\n", "Exit from SIG_HDLR\n", "Cancel Dispatcher Thread!\n"}));
}

TEST_F(Process, IsNotBlockedByUnreadOutput) {
    const auto reset_a_connection = [] {
        const linger reset{1, 0};
        const int connection = connect_to(kNotificationPort);
        setsockopt(connection, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        close(connection);
    };
    for (const bool socket : {false, true}) {
        cloud.forget();
        UnreadOutput output(socket);
        const auto print_there = [&output] {
            dup2(output.end(), STDOUT_FILENO);
            dup2(output.end(), STDERR_FILENO);
        };
        AgentProcess agent(store, {.environment = {{"HAB_LOG_FILE", ""}}, .before = print_there});
        ASSERT_EQ(status("--wait 20"), HAB_OK);
        for (int i = 1; i <= 60; ++i) {
            reset_a_connection();
            ASSERT_TRUE(send_message(kNotificationPort, block_command(i)));
            ASSERT_EQ(cloud.wait_for(static_cast<std::size_t>(i), "transactionAck/").size(), i) << socket;
        }
        EXPECT_EQ(fcntl(output.end(), F_GETFL) & O_NONBLOCK, 0) << "it is shared with other processes";
        const std::string info = file_text("/proc/" + std::to_string(agent.pid()) + "/fdinfo/2");
        EXPECT_EQ((std::stoi(info.substr(info.find("flags:") + 6), nullptr, 8) & O_NONBLOCK) != 0, !socket);
        EXPECT_TRUE(eventually([&] {
            reset_a_connection();
            send_message(kEventPort, "logged");
            return contains(output.read_all(), "\ndroagent: texts lost here, because they could not be written: ") &&
                   contains(output.read_all(), " Lines lost here, because they could not be written: ");
        }));
        expect_prompt_end(agent);
        for (const std::string& line : lines_of(output.read_all())) {
            const auto source = line.find(".cpp:");  // once in each log line
            EXPECT_TRUE((source < line.size() && source == line.rfind(".cpp:")) ||
                        line == "Error reading socket: Connection reset by peer" || line.starts_with("droagent: "))
                << line;
        }
    }
    const auto print_to_an_exited_reader = [] {
        unsetenv("HAB_LOG_FILE");
        signal(SIGPIPE, SIG_DFL);
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe(ends.data()), 0);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
    };
    AgentProcess agent(store, {.before = print_to_an_exited_reader});
    EXPECT_EQ(status("--wait 20"), HAB_OK);
    expect_prompt_end(agent);
}

TEST_F(Process, ReportsWhyItCannotStart) {
    const std::string ours = std::to_string(getpid());
    const std::string elsewhere = store.folder() + "/elsewhere";
    const char* const noNumber = "Error reading data from pid file - possibly data is in wrong format\n";
    // The pid file's content (null: there is none), whether it is a symbolic link, the start, exit status and text.
    const Cases<const char*, bool, Launch, int, const char*> cases{
        {nullptr, false, {.arguments = {"--help"}}, 255, "Cannot parse args. Input valid data from cli\n"},
        {nullptr, false, {.environment = {{"HAB_STORE", "/none.db"}}}, 1, "Couldn't init HAB! is HAB running?\n"},
        {nullptr, false, {.environment = {{"HAB_LOG_FILE", "/"}}}, 1, "Couldn't init dynamic log library?\n"},
        {"hello\n", false, {}, 1, noNumber},
        {"", false, {}, 1, noNumber},
        {ours.c_str(), false, {}, 1, "Daemon is already running.\n"},
        {"99999999\n", true, {}, 1, "Error opening pid file for reading 40\n"},
        {"99999999\n", false, {}, 1, " stays locked by another program\n"}};
    for (const auto& [content, behindLink, launch, status, said] : cases) {
        if (content != nullptr) {
            std::ofstream(behindLink ? elsewhere : kPidFile) << content;
        }
        if (behindLink) {
            std::filesystem::create_symlink(elsewhere, kPidFile);
        }
        const int held = open(kPidFile, O_RDWR | O_CLOEXEC);
        lockf(held, F_LOCK, 0);  // the last case waits for it
        AgentProcess agent(store, launch);
        EXPECT_EQ(agent.wait_exit(), status);
        EXPECT_TRUE(contains(agent.output(), said)) << agent.output();
        EXPECT_EQ(contains(agent.output(), "failed to lock the pid file.\n"), content != nullptr);
        EXPECT_EQ(file_text(kPidFile), content != nullptr ? content : "");
        close(held);
        unlink(kPidFile);
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto startWithoutSignals = [] {
        const FailCalls fault(Call::sigaction, EINVAL);
        std::array<char, 11> name{"./droagent"};
        std::array<char*, 2> arguments{name.data(), nullptr};
        dro::droagent_main(1, arguments.data());
    };
    EXPECT_EXIT(startWithoutSignals(), ::testing::ExitedWithCode(1), "Failed to setup signal handers.\n");
}

TEST_F(Process, LocksAPidFileOnlyWhenItCanCheckAndWriteIt) {
    const auto lock_failing = [](Call call, int error) {
        const FailCalls fault(call, error);
        return dro::lock_process(kPidFile);
    };
    std::ofstream(kPidFile) << "1\n";
    EXPECT_EQ(lock_failing(Call::kill, EPERM), -1) << "a process of another user";
    unlink(kPidFile);
    EXPECT_EQ(lock_failing(Call::write, ENOSPC), -1);
    EXPECT_FALSE(std::filesystem::exists(kPidFile));
    const auto expect_locked = [](int descriptor) {
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(file_text(kPidFile), std::to_string(getpid()) + "\n");
        EXPECT_EQ(dro::unlock_process(kPidFile, descriptor), 0);
        EXPECT_FALSE(std::filesystem::exists(kPidFile));
    };
    for (const int refused : {EPERM, ENOTSUP, EMLINK, ENOSYS}) {
        expect_locked(lock_failing(Call::link, refused));
    }
    const std::string ownName = std::string(kPidFile) + "." + std::to_string(getpid());
    std::filesystem::create_directory(ownName);
    expect_locked(dro::lock_process(kPidFile));
    std::filesystem::remove(ownName);
    EXPECT_EQ(dro::unlock_process(kPidFile, -1), -1) << "a missing file is a failed removal";
}

TEST_F(Process, ReleasesWhatTheReasonRequires) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The reasons, the log text, and the released resources: input (1), pid file (2), session (4).
    const Cases<Texts, const char*, int> cases{
        {{"LOCK_PROCESS"}, "Exit from LOCK_PROCESS", 0},
        {{"SIG_HDLR", "SIG_EXIT"}, "Exit from SIG_HDLR", 1 + 2},
        {{"DAL_INIT", "GET_INFO", "TV_SUBSCRIBE", "DROBASE_URL"}, "Exit from Internal exit", 1 + 2 + 4},
        {{"another"}, "Bye Bye.....\n$", 0}};
    const auto leave = [](const std::string& reason) {
        dro::lock_process(kPidFile);
        dro::dal_init();
        dro::stop_requested();  // creates its descriptor now; later it would reuse the number of the closed one
        dro::good_bye(reason.c_str());
        const bool fileGone = !std::filesystem::exists(kPidFile);
        unlink(kPidFile);
        _exit((fcntl(STDIN_FILENO, F_GETFD) < 0 ? 1 : 0) + (fileGone ? 2 : 0) +
              (dro::dal_get_handle() == nullptr ? 4 : 0));
    };
    for (const auto& [reasons, said, released] : cases) {
        for (const std::string& reason : reasons) {
            EXPECT_EXIT(leave(reason), ::testing::ExitedWithCode(released), said) << reason;
        }
    }
}

#if !defined(__SANITIZE_THREAD__)  // its runtime has a periodically waking thread
// How long and how often each thread has run.
std::map<std::string, std::string> schedule_of(pid_t process) {
    std::map<std::string, std::string> schedule;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        schedule[thread.path().filename().string() + " " + file_text(thread.path() / "comm")] =
            file_text(thread.path() / "schedstat");
    }
    return schedule;
}

TEST_F(Process, NeverWakesUpWhileIdle) {
    store.set_all({{"DroStatus.dispatcherSupport", "true"}, {"DroStatus.cdilSupport", "true"}});
    const AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link());
    store.set("dalLogCfg.DroagentConfigurationApply", "false");  // written again, it would never be asleep
    // The agent is asleep once its schedule stops changing.
    std::map<std::string, std::string> before;
    const auto moved = [&] { return std::exchange(before, schedule_of(agent.pid())) != before; };
    ASSERT_TRUE(eventually([&] { return !eventually(moved, std::chrono::milliseconds(50)); }));
    EXPECT_GE(before.size(), 5U) << "main, link, dispatcher and two delivery threads";
    EXPECT_FALSE(eventually(moved, std::chrono::milliseconds(1500))) << ::testing::PrintToString(before);
    ASSERT_TRUE(send_message(kNotificationPort, block_command(1)));
    EXPECT_TRUE(eventually(moved)) << "the counts are those of the agent";
}
#endif

TEST_F(Process, ContainsItsSecretsOnlyInPieces) {
    const AgentProcess agent(store);
    ASSERT_TRUE(agent.wait_for_link());
    const std::string bytes = file_text("/proc/" + std::to_string(agent.pid()) + "/exe");
    for (const char* whole : {"lab-only-secret!", "6c61622d6f6e6c792d73656372657421", "0123456789abcdef0123456789abc",
                              "LABPROD0LABPROD0LABPROD0LABPROD0LABPROD1LABPROD1LABPROD1LABPROD1"}) {
        EXPECT_FALSE(contains(bytes, whole)) << whole;
    }
    for (const char* piece : {"LABPROD0LABPROD0LABPROD0LABPROD0", "LABPROD1LABPROD1LABPROD1LABPROD1", "0123456789abcd",
                              "ef0123456789abc"}) {
        EXPECT_TRUE(contains(bytes, piece)) << piece;
    }
}

}  // namespace
}  // namespace dro_test

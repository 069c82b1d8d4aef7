// The log: the format of its lines, its level mask, and its destinations, available or not.
#include "habdynlog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "workbench.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class Dynlog : public StoreTest {
 protected:
    Dynlog() { setenv("HAB_LOG_FILE", (folder_ + "/agent.log").c_str(), 1); }
    ~Dynlog() override { dynlog_lib_uninit(); }

    std::string log() const { return file_text(folder_ + "/agent.log"); }
    void empty_log() const { std::filesystem::resize_file(folder_ + "/agent.log", 0); }
};

std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream lines(text);
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);) {
        all.push_back(line);
    }
    return all;
}

TEST_F(Dynlog, WritesOneLineForEachCall) {
    ASSERT_EQ(dynlog_lib_init(), 0);
    set_log_level(0, "Droagent", "droagent");
    log_printf(2, "/a/path/to/dro_main.cpp", 42, "message %d\n", 7);
    EXPECT_THAT(log(), MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} Droagent 2 "
                                    "dro_main.cpp:42 message 7\n"));
    const Cases<const char*, const char*> cases{
        {"plain", "plain"},
        {"ends\n\n", "ends\\n"},
        {"2026-01-01T00:00:00.000 a\n2026-01-01T00:00:00.000 b", "a\\n2026-01-01T00:00:00.000 b"},
        {"tab\tcr\rescape\x1b[31mdel\x7f", "tab\\tcr\\rescape\\x1b[31mdel\\x7f"},
        {"\xC3\xBC \xFF", "\xC3\xBC \xFF"},
        {"", "dynlog_test.cpp:1 \n"}};
    for (const auto& [message, shown] : cases) {
        empty_log();
        log_printf(4, "dynlog_test.cpp", 1, "%s", message);
        EXPECT_THAT(log(), HasSubstr(shown));
        EXPECT_EQ(log().find('\n'), log().size() - 1) << message;
    }
}

TEST_F(Dynlog, WritesTheLevelsThatTheStoreSelects) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto reload_without_a_store = [] {
        setenv("HAB_STORE", "/nowhere/hab.db", 1);
        set_log_level(1, "Droagent", "droagent");
    };
    EXPECT_EXIT((log_printf(1, "f", 1, "before"), reload_without_a_store(), log_printf(1, "f", 1, "hidden"),
                 log_printf(2, "f", 1, "notice"), std::_Exit(0)),
                testing::ExitedWithCode(0),
                AllOf(HasSubstr("before"), HasSubstr("notice"), testing::Not(HasSubstr("hidden"))));
    ASSERT_EQ(dynlog_lib_init(), 0);
    // The levels that are currently logged.
    const auto logged = [&] {
        empty_log();
        std::string levels;
        for (const int level : {1, 2, 4}) {
            log_printf(level, "f", level, "m");
            levels += log().ends_with(" f:" + std::to_string(level) + " m\n") ? std::to_string(level) : "";
        }
        return levels;
    };
    const Session session = open();
    const Cases<std::uint32_t, const char*> cases{{5, "14"}, {0, ""}, {7, "124"}};
    for (const auto& [mask, levels] : cases) {
        const std::string before = logged();
        hab_set_uint(session.get(), "dalLogCfg", 0, "DroagentLogMask", mask);
        EXPECT_EQ(logged(), before);  // re-read only on request
        set_log_level(1, "Droagent", "droagent");
        EXPECT_EQ(logged(), levels);
    }
    hab_set_uint(session.get(), "dalLogCfg", 0, "DroagentLogMask", 2);
    reload_without_a_store();  // leaves the mask unchanged
    EXPECT_EQ(logged(), "124");
}

TEST_F(Dynlog, RotatesFilesForItsOwnerOnlyAndKeepsLongLinesWhole) {
    umask(0);
    ASSERT_EQ(dynlog_lib_init(), 0);
    const std::string text(524'288, 'x');
    for (int i = 0; i < 40; ++i) {
        log_printf(4, "f", 1, "%s<end>\n", text.c_str());
    }
    for (const char* name : {"/agent.log", "/agent.1.log", "/agent.2.log"}) {
        struct stat file {};
        ASSERT_EQ(stat((folder_ + name).c_str(), &file), 0) << name;
        EXPECT_EQ(file.st_mode & 0777U, 0600U) << name;
        EXPECT_LE(file.st_size, 4 * 1024 * 1024);
        for (const std::string& line : lines_of(file_text(folder_ + name))) {
            EXPECT_TRUE(line.starts_with("20") && line.ends_with(" f:1 " + text + "<end>"));
        }
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/agent.3.log"));
}

// While it exists, no file can be opened.
class NoDescriptors {
 public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{3, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
    rlimit before_{};
};

constexpr const char* kLost = "ines lost here, because they could not be written: ";

TEST_F(Dynlog, GoesOnAfterItsFileWasUnavailable) {
    const std::string filler(1'048'576, 'x');
    std::ofstream(folder_ + "/agent.log") << "cut by a full disk";
    for (const int before : {0, 3}) {  // none: the file cannot be opened at first; three: the next line rotates it
        std::optional<NoDescriptors> none;
        int lost = 2;
        testing::internal::CaptureStderr();
        if (before == 0) {
            none.emplace();
        }
        ASSERT_EQ(dynlog_lib_init(), 0);
        for (int i = 0; i < before; ++i) {
            log_printf(4, "f", 1, "%s", filler.c_str());
        }
        none.emplace();
        log_printf(4, "f", 1, "%s", filler.c_str());
        log_printf(4, "f", 1, "%s", filler.c_str());
        none.reset();
        EXPECT_TRUE(dro_test::eventually([&] {
            log_printf(4, "f", 1, "again");
            return log().ends_with(" again\n") || ++lost == 0;
        }));
        EXPECT_THAT(log(), HasSubstr(kLost + std::to_string(lost) + "\n"));
        EXPECT_TRUE(before != 0 || log().starts_with("cut by a full disk\n20")) << log();
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "habdynlog: Failed opening file " + folder_ +
                      "/agent.log for writing: Too many open files; lines are lost until the file can be written\n");
    }
    setenv("HAB_LOG_FILE", "/dev/full", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(dynlog_lib_init(), 0);
    log_printf(4, "f", 1, "lost");
    log_printf(4, "f", 1, "lost");
    dynlog_lib_uninit();
    setenv("HAB_LOG_FILE", "/proc/nowhere/agent.log", 1);
    EXPECT_NE(dynlog_lib_init(), 0) << "no retry would help";
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "habdynlog: Failed flush to file /dev/full: No space left on device; lines are lost until the file can be "
        "written\n"
        "habdynlog: /dev/full: 2 lines were lost\n"
        "habdynlog: Failed opening file /proc/nowhere/agent.log for writing: No such file or directory\n");
}

TEST_F(Dynlog, DropsWholeLinesRatherThanWaitForTheReaderOfStandardError) {
    unsetenv("HAB_LOG_FILE");
    setenv("HAB_STORE", "/nowhere/hab.db", 1);
    const std::string filler(30'000, 'x');
    for (const bool socket : {false, true}) {
        std::array<int, 2> ends{};
        ASSERT_EQ(socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) : pipe(ends.data()), 0);
        const int standardError = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        std::string text;
        const auto read_all = [&] {
            std::array<char, 4096> part{};
            for (ssize_t size = 0; (size = read(ends[0], part.data(), part.size())) > 0;) {
                text.append(part.data(), static_cast<std::size_t>(size));
            }
        };
        EXPECT_EQ(dynlog_lib_init(), 0);
        for (int i = 1; i < 5000; ++i) {
            log_printf(4, "f", 1, "%d%s<end>", i, i % 10 == 0 ? filler.c_str() : "");
        }
        EXPECT_EQ(hab_init(), nullptr);  // explains why on standard error
        read_all();
        log_printf(4, "f", 1, "<end>");
        EXPECT_EQ(hab_init(), nullptr);
        read_all();
        dup2(standardError, STDERR_FILENO);
        close(standardError);
        close(ends[0]);
        std::array<int, 2> written{};  // by the log, by the store
        std::array<int, 2> lost{};
        for (const std::string& line : lines_of(text)) {
            const bool store = line.starts_with("hablib: ");
            const auto report = line.find(kLost);
            (report == std::string::npos ? written : lost).at(store ? 1 : 0) +=
                report == std::string::npos ? 1 : std::stoi(line.substr(report + std::string(kLost).size()));
            EXPECT_TRUE(store || report != std::string::npos || line.ends_with("<end>")) << line;
        }
        EXPECT_EQ(written[0] + lost[0], 5000);
        EXPECT_GT(written[0], 100);
        EXPECT_GT(lost[0], 100);
        EXPECT_EQ(written[1], 1);
        EXPECT_EQ(lost[1], 1);
    }
}

TEST_F(Dynlog, StandsOpeningAndClosingWhileOthersLog) {
    std::vector<std::jthread> loggers(4);
    for (std::jthread& logger : loggers) {
        logger = std::jthread([](const std::stop_token& done) {
            while (!done.stop_requested()) {
                log_printf(4, "f", 1, "%s\n", "line");
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(dynlog_lib_init(), 0);
        set_log_level(1, "Droagent", "droagent");
        dynlog_lib_uninit();
    }
    loggers.clear();
    const std::string before = log();
    log_printf(4, "f", 1, "dropped");
    EXPECT_EQ(log(), before);
    for (const std::string& line : lines_of(before)) {
        ASSERT_TRUE(line.ends_with(" 4 f:1 line")) << line;
    }
}

}  // namespace

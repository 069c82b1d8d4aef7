// The log: the format of its lines, its level mask and its destinations.
#include "habdynlog.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

#include "workbench.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

class Dynlog : public StoreTest {
 protected:
    Dynlog() { setenv("HAB_LOG_FILE", (folder_ + "/agent.log").c_str(), 1); }
    ~Dynlog() override { dynlog_lib_uninit(); }

    std::string log() const { return file_text(folder_ + "/agent.log"); }
    void empty_log() const { std::filesystem::resize_file(folder_ + "/agent.log", 0); }
};

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
    setenv("HAB_STORE", "/nowhere/hab.db", 1);
    set_log_level(1, "Droagent", "droagent");  // an unreadable store leaves the mask unchanged
    EXPECT_EQ(logged(), "124");
}

TEST_F(Dynlog, WritesEveryLevelUntilTheMaskIsReadAndNoTraceWhenItCannotBe) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto startWithoutAStore = [] {
        log_printf(1, "f", 1, "before");
        setenv("HAB_STORE", "/nowhere/hab.db", 1);
        set_log_level(0, "Droagent", "droagent");
        log_printf(1, "f", 1, "hidden");
        log_printf(2, "f", 1, "notice");
        std::_Exit(0);
    };
    EXPECT_EXIT(startWithoutAStore(), testing::ExitedWithCode(0),
                testing::AllOf(HasSubstr("before"), HasSubstr("notice"), testing::Not(HasSubstr("hidden"))));
}

TEST_F(Dynlog, RotatesFilesForItsOwnerOnlyAndKeepsLongLinesWhole) {
    umask(0);
    ASSERT_EQ(dynlog_lib_init(), 0);
    const std::string text(524'288, 'x');
    for (int i = 0; i < 40; ++i) {
        log_printf(4, "f", 1, "%s<end>\n", text.c_str());
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        if (entry.path().extension() != ".log") {
            continue;
        }
        ++files;
        EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600)) << entry.path();
        EXPECT_LE(entry.file_size(), 4U * 1024 * 1024);
        std::istringstream lines(file_text(entry.path()));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(line.starts_with("20") && line.ends_with(" f:1 " + text + "<end>"));
        }
    }
    EXPECT_EQ(files, 3);
}

TEST_F(Dynlog, SaysWhenItsFileCannotBeOpened) {
    setenv("HAB_LOG_FILE", "/proc/nowhere/agent.log", 1);
    testing::internal::CaptureStderr();
    EXPECT_NE(dynlog_lib_init(), 0);
    log_printf(4, "f", 1, "still to standard error");
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_THAT(errors, HasSubstr("cannot log to /proc/nowhere/agent.log"));
    EXPECT_THAT(errors, HasSubstr("still to standard error\n"));
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
    std::istringstream lines(before);
    for (std::string line; std::getline(lines, line);) {
        ASSERT_TRUE(line.ends_with(" 4 f:1 line")) << line;
    }
}

}  // namespace

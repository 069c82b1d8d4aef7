// The log: the format of its lines, its level mask, and its destinations, available or not.
#include "habdynlog.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "unread_output.h"
#include "workbench.h"

namespace {

using dro_test::lines_of;
using testing::HasSubstr;

class Dynlog : public StoreTest {
 protected:
    Dynlog() { setenv("HAB_LOG_FILE", file_.c_str(), 1); }
    ~Dynlog() override { dynlog_lib_uninit(); }

    std::string log() const { return file_text(file_); }

    const std::string file_ = folder_ + "/agent.log";
};

void put(const std::string& text) {
    log_printf(4, "f", 1, "%s", text.c_str());
}

TEST_F(Dynlog, WritesOneLineForEachCall) {
    ASSERT_EQ(dynlog_lib_init(), 0);
    set_log_level(0, "Droagent", "droagent");
    log_printf(2, "/a/path/to/dro_main.cpp", 42, "message %d\n", 7);
    EXPECT_THAT(log(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} Droagent 2 "
                                      "dro_main.cpp:42 message 7\n"));
    const Cases<const char*, const char*> cases{
        {"ends\n\n", "ends\\n"},
        {"2026-01-01T00:00:00.000 a\n2026-01-01T00:00:00.000 b", "a\\n2026-01-01T00:00:00.000 b"},
        {"tab\tcr\rescape\x1b[31mdel\x7f", "tab\\tcr\\rescape\\x1b[31mdel\\x7f"},
        {"\xC3\xBC \xFF", "\xC3\xBC \xFF"},
        {"", " f:1 \n"}};
    for (const auto& [message, shown] : cases) {
        std::filesystem::resize_file(file_, 0);
        put(message);
        EXPECT_THAT(log(), HasSubstr(shown));
        EXPECT_EQ(log().find('\n'), log().size() - 1) << message;
    }
}

TEST_F(Dynlog, WritesTheLevelsThatTheStoreSelects) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The levels that are logged; in the child process, to standard error.
    const auto logged = [&] {
        std::ofstream(file_, std::ios::trunc).close();
        for (const int level : {1, 2, 4}) {
            log_printf(level, "f", level, "m");
        }
        std::string levels;
        for (const std::string& line : lines_of(log())) {
            levels += line.at(line.size() - 3);
        }
        return levels;
    };
    const auto reload_without_a_store = [] {
        setenv("HAB_STORE", "/nowhere/hab.db", 1);
        set_log_level(1, "Droagent", "droagent");
    };
    EXPECT_EXIT((logged(), reload_without_a_store(), logged(), std::_Exit(0)), testing::ExitedWithCode(0),
                "f:1 m\n.* f:2 m\n.* f:4 m\nhablib.*\n.* f:2 m\n.* f:4 m\n$");
    ASSERT_EQ(dynlog_lib_init(), 0);
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
    const std::string text = std::string(524'288, 'x') + "<end>";
    for (int i = 0; i < 40; ++i) {
        put(text + "\n");
    }
    for (const char* name : {"/agent.log", "/agent.1.log", "/agent.2.log"}) {
        const std::filesystem::path file = folder_ + name;
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600)) << name;
        EXPECT_LE(std::filesystem::file_size(file), 4U * 1024 * 1024);
        for (const std::string& line : lines_of(file_text(file))) {
            EXPECT_TRUE(line.starts_with("20") && line.ends_with(" f:1 " + text));
        }
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/agent.3.log"));
}

constexpr const char* kLost = "ines lost here, because they could not be written: ";

TEST_F(Dynlog, ContinuesAfterItsFileWasUnavailable) {
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{3, usual.rlim_max};  // no file can be opened
    const std::string filler(1'048'576, 'x');
    std::ofstream(file_) << "cut by a full disk";
    for (const int before : {0, 3}) {  // 0: the first line opens the file; 3: the next line rotates it
        testing::internal::CaptureStderr();
        setrlimit(RLIMIT_NOFILE, before == 0 ? &none : &usual);
        ASSERT_EQ(dynlog_lib_init(), 0);
        for (int i = 0; i < before + 2; ++i) {
            setrlimit(RLIMIT_NOFILE, i < before ? &usual : &none);
            put(filler);
        }
        setrlimit(RLIMIT_NOFILE, &usual);
        int lost = 2;
        EXPECT_TRUE(dro_test::eventually([&] { return put("again"), log().ends_with(" again\n") || ++lost == 0; }));
        EXPECT_THAT(log(), HasSubstr(kLost + std::to_string(lost) + "\n"));
        EXPECT_TRUE(before != 0 || log().starts_with("cut by a full disk\n20")) << log();
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "habdynlog: Failed opening file " + file_ +
                      " for writing: Too many open files; lines are lost until the file can be written\n");
    }
    setenv("HAB_LOG_FILE", "/dev/full", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(dynlog_lib_init(), 0);
    put("lost");
    put("lost");
    dynlog_lib_uninit();
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "habdynlog: Failed flush to file /dev/full: No space left on device; lines are lost until the file can be "
        "written\n"
        "habdynlog: /dev/full: 2 lines were lost\n");
}

TEST_F(Dynlog, DropsWholeLinesRatherThanWaitForTheReaderOfStandardError) {
    unsetenv("HAB_LOG_FILE");
    setenv("HAB_STORE", "/nowhere/hab.db", 1);
    const std::string filler(30'000, 'x');
    for (const bool socket : {false, true}) {
        dro_test::UnreadOutput output(socket);
        const int usual = dup(STDERR_FILENO);
        dup2(output.end(), STDERR_FILENO);
        EXPECT_EQ(dynlog_lib_init(), 0);
        for (int i = 1; i < 5000; ++i) {
            put((i % 10 == 0 ? filler : "") + "<end>");
        }
        EXPECT_EQ(hab_init(), nullptr);  // explains why on standard error
        output.read_all();
        put("<end>");
        EXPECT_EQ(hab_init(), nullptr);
        dup2(usual, STDERR_FILENO);
        close(usual);
        int written = 0;
        int lost = 0;
        for (const std::string& line : lines_of(output.read_all())) {
            const bool report = line.find(kLost) != std::string::npos;
            const bool store = line.starts_with("hablib: ");
            written += report || store ? 0 : 1;
            lost += report && !store ? std::stoi(line.substr(line.rfind(' '))) : 0;
            EXPECT_TRUE(report || store || line.ends_with("<end>")) << line;
        }
        EXPECT_EQ(written + lost, 5000);
        EXPECT_GT(std::min(written, lost), 100);
        EXPECT_THAT(output.read_all(), HasSubstr(std::string("\nhablib: l") + kLost + "1\nhablib: /nowhere/hab.db: "));
    }
}

TEST_F(Dynlog, MayBeOpenedAndClosedWhileOthersLog) {
    std::vector<std::jthread> loggers(4);
    for (std::jthread& logger : loggers) {
        logger = std::jthread([](const std::stop_token& done) {
            while (!done.stop_requested()) {
                put("line");
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(dynlog_lib_init(), 0);
        set_log_level(1, "Droagent", "droagent");
        dynlog_lib_uninit();
    }
    loggers.clear();
    put("dropped");
    for (const std::string& line : lines_of(log())) {
        ASSERT_TRUE(line.ends_with(" 4 f:1 line")) << line;
    }
}

}  // namespace

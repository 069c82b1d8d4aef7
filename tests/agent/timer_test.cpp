// The daily sync: from a time of day in UTC to the alarm, and what the alarm does.
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>

#include "dro_reg.h"
#include "pipeline.h"

namespace dro_test {
namespace {

constexpr int at(int hours, int minutes = 0, int seconds = 0) {
    return hours * 3600 + minutes * 60 + seconds;
}

class DailySync : public AgentTest {
 protected:
    ~DailySync() override { alarm(0); }
};

TEST_F(DailySync, WaitsUntilTheTimeOfDayAsTheFleetKnowsIt) {
    const auto expect = [](const char* what, const std::string& text, int utc, int local, int seconds) {
        EXPECT_EQ(dro::seconds_until_sync(dro::sync_target(text), utc, local), seconds) << what;
    };
    expect("later today, an hour east", "\"02:00:00\"", at(0, 30), at(1, 30), 5400);
    EXPECT_TRUE(log.in_order({"hours = 2, min, = 0, sec, = 0\n", "time offset is 3600\n", "timer seconds is 10800\n",
                              "alarm seconds  is 5400\n"}));
    expect("tomorrow, an hour east", "\"02:00:00\"", at(3), at(4), 82800);
    expect("this very second", "\"03:00:00\"", at(3), at(4), 0);
    expect("a second ago", "\"02:59:59\"", at(3), at(4), 86399);
    expect("in a second", "\"03:00:01\"", at(3), at(4), 1);
    expect("UTC and local time on two dates, east", "\"02:00:00\"", 86399, at(0, 59, 59), 7201);
    expect("UTC and local time on two dates, west", "\"02:00:00\"", at(0, 30), at(23, 30), 5400);
    expect("before the day began", "\"-1:00:00\"", 86399, 86399, -3599);
    expect("no quotes", "02:00:00", 0, 0, 7200);
    expect("a number is hours", "7", 0, 0, 25200);
    expect("empty", "\"\"", 3600, 3600, 82800);
    expect("words", "\"ab:cd:ef\"", 3600, 3600, 82800);
    expect("no colons run on", "\"020000\"", 0, 0, 72'000'000);
    expect("a long field runs on until the next begins", "\"0203:04:05\"", 0, 0, 7'214'645);
    expect("hours without end", std::string(20, '9') + ":99:99", 0, 0, 360'002'439);
    expect("digits without end", std::string(5000, '9'), 0, 0, 877'403'291);
    expect("a fourth field", "01:02:03:04", 0, 0, at(1, 2, 3));
    expect("colons without end", "01" + std::string(5000, ':'), 0, 0, 3600);
}

TEST_F(DailySync, KnowsTheLocalTime) {
    const char* before = std::getenv("TZ");
    const std::string zone = before != nullptr ? before : "";
    setenv("TZ", "EAST-5:30", 1);
    tzset();
    const int offset = (dro::find_local_time() - dro::find_utc() + 86400) % 86400;
    before != nullptr ? setenv("TZ", zone.c_str(), 1) : unsetenv("TZ");
    tzset();
    EXPECT_NEAR(offset, at(5, 30), 1);  // the two are read one after the other
}

TEST_F(DailySync, ArmsTheOneAlarm) {
    dro::alarm_function(1000);
    EXPECT_TRUE(log.has("Timer will start after 1000 Seconds\r\n", 1));
    const int expected = dro::seconds_until_sync(43200, dro::find_utc(), dro::find_local_time());
    dro::start_timer("\"12:00:00\"");
    EXPECT_NEAR(static_cast<int>(alarm(1000)), expected, 2);
    dro::alarm_function(0);
    EXPECT_EQ(alarm(0), 0U) << "a delay of 0 disarms";
}

TEST_F(DailySync, MarksTheSyncAsksForTheListAndWaitsADay) {
    const StoreSpy spy;
    dro::alarm_function(1000);
    struct sigaction installed {};
    sigaction(SIGALRM, nullptr, &installed);
    installed.sa_handler(SIGUSR2);
    EXPECT_TRUE(spy.writes().empty()) << "another signal";
    installed.sa_handler(SIGALRM);
    EXPECT_EQ(spy.writes(),
              (Texts{"DroStatus.cdilsyncAt=PERIODIC", "DILGeneral.CDILTrigger=true", "DALHConfig.FeatureID=8",
                     "DALHConfig.CDILRequest=occupied", "DALHConfig.ProcessID=1"}));
    EXPECT_NEAR(static_cast<int>(alarm(0)), 86400, 2);
}

}  // namespace
}  // namespace dro_test

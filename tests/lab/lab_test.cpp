// The router's services and the lab's operations, on a real store, where the tests act as the agent; and the page's
// server: which requests it accepts, and that its readers block nothing. web_test.py tests the page itself.
#include "lab.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <future>

#include "cases.h"
#include "control.h"
#include "store_fields.h"
#include "wait.h"
#include "web.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

class LabTest : public testing::Test {
 protected:
    bool holds(const Field& field, const std::string& value) {
        return lab_.store.await(field, value, dro_test::kPatience);
    }
    // Has the device service build a list for a transaction, as the agent does.
    void list(const char* transaction) {
        lab_.store.set(field::DALHNotifyCDIL::CDILstatus, "init");
        lab_.store.set({{field::DroStatus::cdilTransUuid, transaction},
                        {field::DALHConfig::CDILRequest, "occupied"},
                        {field::DALHConfig::FeatureID, "8"},
                        {field::DALHConfig::ProcessID, "1"}});
        EXPECT_TRUE(holds(field::DALHNotifyCDIL::CDILstatus, "complete"));
    }
    Reply act(const std::string& operation, const std::string& arguments) {
        return perform(lab_, operation, parseJson(arguments));
    }

    TemporaryFolder folder_;
    Timeline timeline_;
    Lab lab_{timeline_, {.storePath = "", .devices = 40, .caBundle = folder_.path() / "ca.crt"}};
};

TEST_F(LabTest, DeviceServiceClosesTheTransactionOfAnAnsweredListOnly) {
    list("first");
    lab_.store.set(field::DroStatus::cdilTransUuid, "second");  // arrives while the first list is being delivered
    lab_.store.set(field::RADebugLog::cdilDebugStatus, "success");
    lab_.store.set(field::RADebugLog::cdilDebugStatus, "none");
    list("second");
    EXPECT_EQ(lab_.store.get(field::DroStatus::cdilTransUuid), "second");
    lab_.store.set(field::RADebugLog::cdilDebugStatus, "success");
    EXPECT_TRUE(holds(field::DroStatus::cdilTransUuid, "Noop"));
}

TEST_F(LabTest, DeviceServiceNotifiesAsTheTagRequires) {
    const dro_test::Cases<const char*, bool, bool> cases{
        {"untag", true, false},   {"both", true, true},     {"both", false, true},   {"online", true, true},
        {"online", false, false}, {"offline", false, true}, {"offline", true, false}};
    for (const auto& [tag, online, notified] : cases) {
        lab_.store.set({{field::DALHNotifyDTN::Index, "257"}, {field::Dilsignature::IsTagged.at(7), tag}});
        lab_.devices.deviceOnline(lab_.population.at(7).name, online);
        EXPECT_EQ(lab_.store.get(field::DALHNotifyDTN::Index), notified ? "7" : "257") << tag << " " << online;
    }
}

TEST_F(LabTest, OperationsReportInvalidArguments) {
    EXPECT_EQ(act("cloud", R"({"mood":"sideways"})").text,
              "\"sideways\" is not one of: down, slow, close, empty, error, garbage, refuse, stall, up");
    EXPECT_EQ(act("cloud", R"({"mood":"slow","value":"soon"})").text, "value: \"soon\" is not a number");
    for (const std::string wrong : {"24:00:00", "23:59:60", "2:00:00", "02:00:00 ", "02:00", ""}) {
        EXPECT_EQ(act("sync-time", R"({"value":")" + wrong + R"("})").text,
                  "\"" + wrong + "\" is neither HH:MM:SS nor null");
    }
    EXPECT_EQ(act("send", R"({"command":"BLOCK_CD","data":"[]","timeoutMs":"1"})").text,
              "the data is not a JSON object: []");
    for (const auto& [operation, arguments] :
         dro_test::Cases<const char*, const char*>{{"device", R"({"action":"offline","name":"nobody"})"},
                                                   {"devices", R"({"count":"257"})"},
                                                   {"send", R"({"command":"BLOCK_CD"})"},  // there is no agent
                                                   {"cloud", R"({"mood":7})"},
                                                   {"cloud", "nonsense"},
                                                   {"dance", "{}"}}) {
        EXPECT_FALSE(act(operation, arguments).ok) << operation << arguments;
    }
    EXPECT_TRUE(act("cloud", R"({"mood":"down"})").ok);
    EXPECT_FALSE(lab_.cloud.isUp());
    EXPECT_EQ(printable("one\ntwo\x7f"), "one\\x0atwo\\x7f");
}

TEST_F(LabTest, OnlyTheSameUserControlsTheLabFromASecondTerminal) {
    ASSERT_EQ(::setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1), 0);
    EXPECT_NE(askLab("status", {}).text.find("drolab up"), std::string::npos);
    {
        const ControlServer control(lab_);
        EXPECT_EQ(std::filesystem::status(controlPath()).permissions(), std::filesystem::perms(0600));
        EXPECT_EQ(askLab("device", {{"action", "join"}, {"name", "Guest \"phone\""}}).text,
                  "Guest \"phone\": join, row 40");
        EXPECT_EQ(lab_.store.get(field::DALHNotifyNDN::Index), "40");
        EXPECT_THROW(ControlServer second(lab_), std::runtime_error);
    }
    EXPECT_FALSE(askLab("status", {}).ok);
}

TEST(Timeline, AnEventIsAnObjectOnOneLine) {
    const std::chrono::system_clock::time_point at(milliseconds(1500));
    const Event named{Actor::Agent, Actor::Cloud, "K\xFC\"che\n", "", Tone::Plain, {}, 0, "", at};
    EXPECT_EQ(jsonOf(named), "{\"time\":1.5,\"from\":\"agent\",\"to\":\"cloud\",\"what\":\"K\xEF\xBF\xBD\\\"che\\n\"}");
    const Event whole{Actor::Agent, Actor::Cloud, "", "{}", Tone::Bad, milliseconds(20), 3, "POST /", at};
    EXPECT_EQ(jsonOf(whole), R"({"time":1.5,"from":"agent","to":"cloud","what":"","body":"{}","tone":"bad","ms":20,)"
                             R"("exchange":3,"head":"POST /"})");
}

// ---- The page's server ----

class WebTest : public LabTest {
 protected:
    WebTest() { timeline_.add(feedSink(feed_)); }

    std::string key() const { return page_.address().substr(page_.address().find('#') + 1); }
    std::string origin() const { return page_.address().substr(0, page_.address().find("/#")); }
    std::string port() const { return origin().substr(origin().rfind(':')); }

    std::shared_ptr<WebFeed> feed_ = std::make_shared<WebFeed>();
    WebPage page_{lab_, feed_, 0};
};

TEST_F(WebTest, AnswersOnlyWithTheKeyAndAtItsOwnAddress) {
    httplib::Client client(origin());
    const std::string own = "127.0.0.1" + port();
    const dro_test::Cases<std::string, std::string, std::string, int> reads{
        {own, "/", "", 200},
        {"localhost" + port(), "/lab.js", "", 200},
        {"rebound.example" + port(), "/", "", 403},
        {"127.0.0.1", "/", "", 403},
        {own, "/lab.json", key(), 200},
        {own, "/lab.json", "", 403},
        {own, "/lab.json", key() + "0", 403},
        {own, "/events", "", 403},
        {"rebound.example" + port(), "/lab.json", key(), 403}};
    for (const auto& [host, path, key, status] : reads) {
        const auto result = client.Get(path, {{"Host", host}, {"X-Lab-Key", key}});
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, status) << host << path << " " << key;
        EXPECT_TRUE(
            result->get_header_value("Content-Security-Policy").starts_with("default-src 'none'; script-src 'self'"));
    }
    const dro_test::Cases<std::string, std::string> wrong{{"", key()},
                                                          {"null", key()},
                                                          {"http://elsewhere.example", key()},
                                                          {"http://localhost" + port(), key()},
                                                          {origin(), ""}};
    const auto act = [&](const std::string& from, const std::string& key) {
        const httplib::Headers headers{{"Host", own}, {"X-Lab-Key", key}, {"Origin", from}};
        const auto result = client.Post("/operations/cloud", headers, R"({"mood":"down"})", "text/plain");
        return result ? result->status : 0;
    };
    for (const auto& [from, key] : wrong) {
        EXPECT_EQ(act(from, key), 403) << from << " " << key;
    }
    EXPECT_TRUE(lab_.cloud.isUp());
    EXPECT_EQ(act(origin(), key()), 200);
    EXPECT_FALSE(lab_.cloud.isUp());
}

TEST_F(WebTest, ReportsAPortThatIsInUse) {
    try {
        const WebPage second(lab_, feed_, std::stoi(port().substr(1)));
        FAIL() << "two pages share a port";
    } catch (const std::runtime_error& problem) {
        EXPECT_NE(std::string(problem.what()).find("drolab up --web "), std::string::npos) << problem.what();
    }
}

TEST_F(WebTest, AStuckReaderDoesNotBlockOthers) {
    std::promise<void> stuck;
    std::promise<void> end;
    std::jthread reader([&, ended = end.get_future().share(), first = true]() mutable {
        httplib::Client(origin()).Get("/events?key=" + key(), [&](const char*, std::size_t) {
            if (std::exchange(first, false)) {
                stuck.set_value();
            }
            ended.wait();
            return false;
        });
    });
    stuck.get_future().wait();
    std::chrono::steady_clock::duration longest{};
    for (int i = 0; i < 400; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        timeline_.message(Actor::Lab, Actor::Agent, "number " + std::to_string(i), std::string(65536, 'x'));
        longest = std::max(longest, std::chrono::steady_clock::now() - begin);
    }
    EXPECT_LT(longest, milliseconds(1500)) << "a stuck reader is disconnected after two seconds";
    end.set_value();
}

TEST(WebFeed, KeepsTheNewestEventsAndEachValueOnce) {
    WebFeed feed;
    for (int i = 1; i <= 400; ++i) {
        feed.addEvent("\"" + std::to_string(i) + std::string(65536, ' ') + "\"");
        feed.addValue("one", std::to_string(i));
    }
    feed.end();
    std::string told;
    std::size_t steps = 0;
    for (WebFeed::News news; !news.over; ++steps) {
        news = feed.after(news.upTo, milliseconds(0));
        told += news.items;
    }
    EXPECT_GT(steps, 10U);
    EXPECT_LT(told.size(), 17U * 1024 * 1024);
    EXPECT_GT(told.size(), 15U * 1024 * 1024);
    EXPECT_NE(told.find("\"400 "), std::string::npos);
    EXPECT_EQ(told.find("\"100 "), std::string::npos);
    EXPECT_EQ(told.find("{\"value\":"), told.rfind("{\"value\":400}"));
}

}  // namespace
}  // namespace lab

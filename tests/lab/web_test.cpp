// The page's server: which requests it accepts, and that its readers block nothing. web_test.py tests the page itself.
#include "web.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <future>

#include "cases.h"

namespace lab {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class WebTest : public testing::Test {
 protected:
    WebTest() { timeline_.add(feedSink(feed_)); }

    std::string key() const { return page_.address().substr(page_.address().find('#') + 1); }
    std::string origin() const { return page_.address().substr(0, page_.address().find("/#")); }
    std::string port() const { return origin().substr(origin().rfind(':')); }

    TemporaryFolder folder_;
    Timeline timeline_;
    std::shared_ptr<WebFeed> feed_ = std::make_shared<WebFeed>();
    Lab lab_{timeline_, {.storePath = "", .devices = 2, .caBundle = folder_.path() / "ca.crt"}};
    WebPage page_{lab_, feed_, 0};
};

TEST_F(WebTest, AnswersTheHolderOfTheKeyAtItsOwnAddressOnly) {
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
        EXPECT_EQ(result->get_header_value("Content-Security-Policy").find("default-src 'none'; script-src 'self'"),
                  0U);
    }
    const dro_test::Cases<std::string, std::string, int> acts{{"", key(), 403},
                                                              {"null", key(), 403},
                                                              {"http://elsewhere.example", key(), 403},
                                                              {"http://localhost" + port(), key(), 403},
                                                              {origin(), "", 403},
                                                              {origin(), key(), 200}};
    for (const auto& [from, key, status] : acts) {
        EXPECT_TRUE(lab_.cloud.isUp());
        const httplib::Headers headers{{"Host", own}, {"X-Lab-Key", key}, {"Origin", from}};
        const auto result = client.Post("/operations/cloud", headers, R"({"mood":"down"})", "text/plain");
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, status) << from << " " << key;
    }
    EXPECT_FALSE(lab_.cloud.isUp());
}

TEST_F(WebTest, TakenPortSaysWhatToDo) {
    try {
        const WebPage second(lab_, feed_, std::stoi(port().substr(1)));
        FAIL() << "two pages share a port";
    } catch (const std::runtime_error& problem) {
        EXPECT_NE(std::string(problem.what()).find("drolab up --web "), std::string::npos) << problem.what();
    }
}

TEST_F(WebTest, AReaderThatDoesNotReadHoldsUpNobody) {
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
    Clock::duration longest{};
    for (int i = 0; i < 400; ++i) {
        const auto begin = Clock::now();
        timeline_.tell(Actor::Lab, Actor::Agent, "number " + std::to_string(i), std::string(65536, 'x'));
        longest = std::max(longest, Clock::now() - begin);
    }
    EXPECT_LT(longest, milliseconds(1500)) << "such a reader is given up after two seconds";
    end.set_value();
}

TEST(WebFeed, KeepsTheNewestEventsAndEachValueOnce) {
    WebFeed feed;
    for (int i = 1; i <= 400; ++i) {
        feed.addEvent("\"" + std::to_string(i) + std::string(65536, ' ') + "\"");
        feed.addValue("one", std::to_string(i));
    }
    std::string told;
    std::size_t steps = 0;
    feed.end();
    for (WebFeed::News news; !news.over; ++steps) {
        news = feed.after(news.upTo, milliseconds(0));
        told += news.items;
    }
    EXPECT_GT(steps, 10U);
    EXPECT_LT(told.size(), 17U * 1024 * 1024);
    EXPECT_GT(told.size(), 15U * 1024 * 1024);
    EXPECT_NE(told.find("\"400 "), std::string::npos);
    EXPECT_EQ(told.find("\"100 "), std::string::npos);
    EXPECT_EQ(told.find("{\"value\":"), told.rfind("{\"value\":"));
    EXPECT_NE(told.find("{\"value\":400}"), std::string::npos);
}

}  // namespace
}  // namespace lab

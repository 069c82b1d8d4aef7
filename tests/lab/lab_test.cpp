// The router's services and what can be done to them, on a real store. The agent's part is played by the tests.
#include "lab.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <condition_variable>
#include <mutex>
#include <set>

#include "control.h"
#include "store_fields.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience{5000};

// The timeline's events, to be waited for.
class Events {
 public:
    class Collector : public Sink {
     public:
        explicit Collector(Events& events) : events_(events) {}
        void show(const Event& event) override {
            const std::lock_guard lock(events_.mutex_);
            events_.seen_.insert(event.what);
            events_.came_.notify_all();
        }

     private:
        Events& events_;
    };

    bool await(const std::string& what) {
        std::unique_lock lock(mutex_);
        return came_.wait_for(lock, kPatience, [&] { return seen_.contains(what); });
    }
    bool has(const std::string& what) {
        const std::lock_guard lock(mutex_);
        return seen_.contains(what);
    }

 private:
    std::mutex mutex_;
    std::condition_variable came_;
    std::set<std::string> seen_;
};

class LabTest : public testing::Test {
 protected:
    LabTest() { timeline_.add(std::make_unique<Events::Collector>(events_)); }

    static LabSettings settings(const std::filesystem::path& folder) {
        LabSettings settings;
        settings.devices = 40;
        settings.caBundle = (folder / "ca.crt").string();
        return settings;
    }

    // What the agent writes to have something done.
    void order(std::uint32_t feature, const Field& operand, const std::string& value) {
        lab_.store.set(operand, value);
        lab_.store.set(field::kFeature, std::to_string(feature));
        lab_.store.set(field::kProcess, "1");
    }

    bool holds(const Field& field, const std::string& value) { return lab_.store.await(field, value, kPatience); }

    // The rows of the list that a request for it yields, from the masks.
    std::vector<int> listOf(const std::string& which) {
        lab_.store.set(field::kListStatus, "init");
        order(8, field::kListRequest, which);
        EXPECT_TRUE(holds(field::kListStatus, "complete"));
        std::vector<int> rows;
        for (int row = 0; row < kRows; ++row) {
            const Field& mask = field::kListMasks.at(static_cast<std::size_t>(row) / 32);
            if ((lab_.store.number(mask) >> (row % 32) & 1U) != 0) {
                rows.push_back(row);
            }
        }
        return rows;
    }

    Reply act(const std::string& operation, const std::string& arguments) {
        return perform(lab_, operation, parseJson(arguments).get());
    }

    TemporaryFolder folder_;
    Events events_;
    Timeline timeline_;
    Lab lab_{timeline_, settings(folder_.path())};
};

TEST(Masks, MarkRowsLowestBitFirst) {
    const auto masks = masksOf({0, 31, 32, 224, 255});
    EXPECT_EQ(masks, (std::array<std::uint32_t, 8>{0x80000001U, 1U, 0, 0, 0, 0, 0, 0x80000001U}));
    EXPECT_EQ(masksOf({}), (std::array<std::uint32_t, 8>{}));
}

TEST_F(LabTest, PopulationGrowsShrinksAndKeepsNamesApart) {
    lab_.population.resize(kRows);
    std::set<std::string> names;
    std::set<std::string> macs;
    for (const int row : lab_.population.rows()) {
        names.insert(lab_.store.get(field::kName.at(row)));
        macs.insert(lab_.store.get(field::kMac.at(row)));
    }
    EXPECT_EQ(names.size(), 256U);
    EXPECT_EQ(macs.size(), 256U);
    EXPECT_THROW(lab_.population.join("One more"), std::runtime_error);
    lab_.population.resize(3);
    EXPECT_EQ(lab_.store.get(field::kMac.at(3)), "00:00:00:00:00:00");
    EXPECT_EQ(lab_.population.join("Guest"), 3);
    EXPECT_THROW(lab_.population.join("guest"), std::runtime_error);
    EXPECT_FALSE(macs.contains(lab_.store.get(field::kMac.at(3))));
}

TEST_F(LabTest, DeviceServiceListsWhatIsAskedFor) {
    lab_.population.setOnline(31, false);
    lab_.population.setOnline(32, false);
    EXPECT_EQ(listOf("offline"), (std::vector<int>{31, 32}));
    EXPECT_EQ(lab_.store.get(field::kListCount), "2");
    EXPECT_EQ(listOf("online").size(), 38U);
    EXPECT_EQ(listOf("occupied").size(), 40U);
    lab_.devices.mood(ServiceMood::Wrong);
    EXPECT_EQ(listOf("offline"), (std::vector<int>{31, 32}));
    EXPECT_EQ(lab_.store.get(field::kListCount), "3");
}

TEST_F(LabTest, DeviceServiceClosesTheTransactionOfAnAnsweredListOnly) {
    lab_.store.set(field::kListTransaction, "first");
    listOf("occupied");
    lab_.store.set(field::kListTransaction, "second");  // came while the first list was on its way
    lab_.store.set(field::kListOutcome, "success");
    lab_.store.set(field::kListOutcome, "none");
    listOf("occupied");
    EXPECT_EQ(lab_.store.get(field::kListTransaction), "second");
    lab_.store.set(field::kListOutcome, "success");
    EXPECT_TRUE(holds(field::kListTransaction, "Noop"));
}

TEST_F(LabTest, DeviceServiceTellsOfTaggedDevicesAsTagged) {
    struct Case {
        const char* tag;
        bool online;
        bool told;
    };
    constexpr std::array kCases{Case{"untag", true, false},  Case{"both", true, true},     Case{"both", false, true},
                                Case{"online", true, true},  Case{"online", false, false}, Case{"offline", false, true},
                                Case{"offline", true, false}};
    const std::string name = lab_.population.at(7).name;
    for (const auto& [tag, online, told] : kCases) {
        lab_.store.set(field::kTaggedDevice, "257");
        lab_.store.set(field::kTagMac, macText(lab_.population.at(7).mac));
        order(2, field::kTagStatus, tag);
        ASSERT_TRUE(holds(field::kTagged.at(7), tag));
        lab_.devices.deviceOnline(name, online);
        EXPECT_EQ(lab_.store.get(field::kTaggedDevice), told ? "7" : "257") << tag << " " << online;
        EXPECT_EQ(lab_.store.get(field::kLinkState.at(7)), online ? "UP" : "DOWN");
    }
}

TEST_F(LabTest, SilentServiceLeavesRequestsLying) {
    lab_.devices.mood(ServiceMood::Silent);
    order(7, field::kBlockMac, macText(lab_.population.at(1).mac));
    ASSERT_TRUE(events_.await("leaves request 7 lying, as told"));
    lab_.devices.mood(ServiceMood::Ok);
    order(7, field::kBlockMac, macText(lab_.population.at(2).mac));
    EXPECT_TRUE(holds(field::kBlocked.at(2), "block"));
    EXPECT_EQ(lab_.store.get(field::kBlocked.at(1)), "allow");
}

TEST_F(LabTest, CircleAgentAnswersAsTold) {
    lab_.circle.delay(milliseconds(1));
    lab_.store.set(field::kCircleOrder, "activate");
    EXPECT_TRUE(holds(field::kCircleAnswer, "activated"));
    EXPECT_NE(lab_.store.get(field::kCuuid), "");
    lab_.circle.mood(CircleMood::Fail);
    lab_.circle.failsWith("no licence");
    lab_.store.set(field::kToggleOrder, "disable");
    EXPECT_TRUE(holds(field::kToggleAnswer, "failed"));
    EXPECT_EQ(lab_.store.get(field::kCircleError), "no licence");
    EXPECT_NE(lab_.store.get(field::kCircleEnabled), "disabled");
}

TEST_F(LabTest, ConnectorConnectsWhenAskedTo) {
    lab_.store.set(field::kForceConnection, "1");
    EXPECT_TRUE(holds(field::kForceConnection, "0"));
    EXPECT_EQ(lab_.store.get(field::kConnected), "1");
    EXPECT_THROW(lab_.connector.deliver("{}", "nobody is there"), std::runtime_error);
}

TEST_F(LabTest, OperationsSayWhatIsWrongWithThem) {
    EXPECT_EQ(act("cloud", R"({"mood":"sideways"})").text,
              "\"sideways\" is not one of: down, slow, close, empty, error, garbage, refuse, stall, up");
    EXPECT_EQ(act("cloud", R"({"mood":"slow","value":"soon"})").text, "value: \"soon\" is no number");
    for (const char* wrong : {"24:00:00", "23:59:60", "2:00:00", "02:00:00 ", "02:00", ""}) {
        EXPECT_EQ(act("sync-time", std::string(R"({"value":")") + wrong + R"("})").text,
                  std::string("\"") + wrong + "\" is neither HH:MM:SS nor null");
    }
    EXPECT_FALSE(act("device", R"({"action":"offline","name":"nobody"})").ok);
    EXPECT_FALSE(act("devices", R"({"count":"257"})").ok);
    EXPECT_FALSE(act("send", R"({"command":"BLOCK_CD"})").ok) << "delivered without an agent";
    EXPECT_FALSE(act("dance", "{}").ok);
    EXPECT_TRUE(act("cloud", R"({"mood":"down"})").ok);
    EXPECT_FALSE(lab_.cloud.isUp());
}

TEST_F(LabTest, ASecondTerminalReachesTheLabAndOnlyTheUserDoes) {
    ASSERT_EQ(::setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1), 0);
    EXPECT_NE(askLab("status", nullptr).text.find("drolab up"), std::string::npos);
    {
        const ControlServer control(lab_);
        struct stat socket {};
        ASSERT_EQ(::stat(controlPath().c_str(), &socket), 0);
        EXPECT_EQ(socket.st_mode & 0777U, 0600U);
        const JsonTree arguments = parseJson(R"({"action":"join","name":"Guest \"phone\""})");
        EXPECT_EQ(askLab("device", arguments.get()).text, "Guest \"phone\": join, row 40");
        EXPECT_EQ(lab_.store.get(field::kNewDevice), "40");
        EXPECT_THROW(ControlServer second(lab_), std::runtime_error);
    }
    EXPECT_FALSE(askLab("status", nullptr).ok);
}

TEST_F(LabTest, TellsWhatTheAgentWritesAndNotWhatOthersDo) {
    lab_.store.set(field::kListStatus, "complete");
    lab_.store.set(field::kRegistrationDone, "false");
    lab_.store.set(field::kCircleUuid, "one");
    EXPECT_TRUE(events_.await("DroCfg.circle_uuid = one"));
    EXPECT_FALSE(events_.has("DALHNotifyCDIL.CDILstatus = complete"));
    EXPECT_FALSE(events_.has("DROStatus.addJorvdeviceIdDone = false"));
    EXPECT_EQ(printable("one\ntwo\x7f"), "one\\x0atwo\\x7f");
}

}  // namespace
}  // namespace lab

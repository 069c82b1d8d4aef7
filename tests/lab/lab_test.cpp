// The router's services and the lab's operations, on a real store. The tests act as the agent.
#include "lab.h"

#include <gtest/gtest.h>

#include "cases.h"
#include "control.h"
#include "store_fields.h"
#include "wait.h"

namespace lab {
namespace {

using std::chrono::milliseconds;

class LabTest : public testing::Test {
 protected:
    // Writes a request as the agent does.
    void order(std::uint32_t feature, const Field& operand, const std::string& value) {
        lab_.store.set(operand, value);
        lab_.store.set(field::DALHConfig::FeatureID, std::to_string(feature));
        lab_.store.set(field::DALHConfig::ProcessID, "1");
    }

    bool holds(const Field& field, const std::string& value) {
        return lab_.store.await(field, value, dro_test::kPatience);
    }

    void list() {
        lab_.store.set(field::DALHNotifyCDIL::CDILstatus, "init");
        order(8, field::DALHConfig::CDILRequest, "occupied");
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
    lab_.store.set(field::DroStatus::cdilTransUuid, "first");
    list();
    lab_.store.set(field::DroStatus::cdilTransUuid, "second");  // arrives while the first list is being delivered
    lab_.store.set(field::RADebugLog::cdilDebugStatus, "success");
    lab_.store.set(field::RADebugLog::cdilDebugStatus, "none");
    list();
    EXPECT_EQ(lab_.store.get(field::DroStatus::cdilTransUuid), "second");
    lab_.store.set(field::RADebugLog::cdilDebugStatus, "success");
    EXPECT_TRUE(holds(field::DroStatus::cdilTransUuid, "Noop"));
}

TEST_F(LabTest, DeviceServiceTellsOfTaggedDevicesAsTagged) {
    const dro_test::Cases<const char*, bool, bool> cases{
        {"untag", true, false},   {"both", true, true},     {"both", false, true},   {"online", true, true},
        {"online", false, false}, {"offline", false, true}, {"offline", true, false}};
    const std::string name = lab_.population.at(7).name;
    for (const auto& [tag, online, told] : cases) {
        lab_.store.set(field::DALHNotifyDTN::Index, "257");
        lab_.store.set(field::DALHConfig::TaggedDeviceMAC, macText(lab_.population.at(7).mac));
        order(2, field::DALHConfig::TagStatus, tag);
        ASSERT_TRUE(holds(field::Dilsignature::IsTagged.at(7), tag));
        lab_.devices.deviceOnline(name, online);
        EXPECT_EQ(lab_.store.get(field::DALHNotifyDTN::Index), told ? "7" : "257") << tag << " " << online;
        EXPECT_EQ(lab_.store.get(field::Dilsignature::Devicestate.at(7)), online ? "UP" : "DOWN");
    }
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
    EXPECT_EQ(act("send", R"({"command":"BLOCK_CD","data":"[]","timeoutMs":"1"})").text,
              "the data is no JSON object: []");
    EXPECT_FALSE(act("cloud", R"({"mood":7})").ok);
    EXPECT_FALSE(act("cloud", "nonsense").ok);
    EXPECT_FALSE(act("dance", "{}").ok);
    EXPECT_TRUE(act("cloud", R"({"mood":"down"})").ok);
    EXPECT_FALSE(lab_.cloud.isUp());
    EXPECT_EQ(printable("one\ntwo\x7f"), "one\\x0atwo\\x7f");
}

TEST_F(LabTest, ASecondTerminalReachesTheLabAndOnlyTheUserDoes) {
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
    Event event;
    event.from = Actor::Agent;
    event.to = Actor::Cloud;
    event.what = "K\xFC\"che\n";
    event.at = std::chrono::system_clock::time_point(milliseconds(1500));
    EXPECT_EQ(jsonOf(event), "{\"time\":1.5,\"from\":\"agent\",\"to\":\"cloud\",\"what\":\"K\xEF\xBF\xBD\\\"che\\n\"}");
    event.what = "";
    event.body = "{}";
    event.tone = Tone::Bad;
    event.took = milliseconds(20);
    event.exchange = 3;
    event.head = "POST /";
    EXPECT_EQ(jsonOf(event), R"({"time":1.5,"from":"agent","to":"cloud","what":"","body":"{}","tone":"bad","ms":20,)"
                             R"("exchange":3,"head":"POST /"})");
}

}  // namespace
}  // namespace lab

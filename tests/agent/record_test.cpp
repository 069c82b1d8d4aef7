// A device's record: eighteen members, always there, in the order and under the keys that the cloud knows.
#include <cstdint>

#include "dro_json.h"
#include "dro_utils.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class Record : public AgentTest {
 protected:
    static std::string built(int index, int mode) {
        const dro::Json object(cJSON_CreateObject());
        dro::getConnectedDeviceData(index, object.get(), mode);
        const dro::JsonText text(cJSON_PrintUnformatted(object.get()));
        return text.get();
    }
};

TEST_F(Record, IsExactUnderTheKeysOfItsReader) {
    add_device(store, 11);
    struct Case {
        int mode;
        const char* pending;
        bool answering;
    };
    for (const Case& c : {Case{dro::kRecordNewDevice, "", false},
                          {dro::kRecordNewDevice, "t-1", false},
                          {dro::kRecordUpdate, "t-1", false},
                          {dro::kRecordListSync, "", false},
                          {dro::kRecordListSync, "Noop", false},
                          {dro::kRecordListSync, "noop", true},
                          {dro::kRecordListSync, "t-1", true}}) {
        store.set("DroStatus.cdilTransUuid", c.pending);
        EXPECT_EQ(built(11, c.mode), device_record(11, c.answering)) << c.mode << " " << c.pending;
    }
}

TEST_F(Record, StateWordsHaveOneDigit) {
    struct Case {
        const char* word;
        char code;
    };
    constexpr char kUntouched = '?';
    for (const Case& c : {Case{"DOWN", '0'},
                          {"allow", '0'},
                          {"untag", '0'},
                          {"block", '1'},
                          {"UP", '1'},
                          {"both", '1'},
                          {"online", '2'},
                          {"offline", '3'},
                          {"up", kUntouched},
                          {"UPPER", kUntouched},
                          {"tag", kUntouched},
                          {"", kUntouched}}) {
        log.forget();
        std::uint16_t code = kUntouched;
        dro::getIntForStateString(c.word, code);
        EXPECT_EQ(code, c.code) << c.word;
        const std::string complaint = std::string("[DROAGENT] - Invalid state value ") + c.word + "\n";
        EXPECT_EQ(log.has(complaint, 4), c.code == kUntouched) << c.word;
    }
    store.set("Dilsignature.IsTagged@3", "tag");
    EXPECT_EQ(json_value(built(3, dro::kRecordNewDevice), "cdTaggedStatus"), "");
}

TEST_F(Record, IsCompleteWhereTheStoreHasNoRow) {
    EXPECT_EQ(built(257, dro::kRecordNewDevice),
              R"({"mac":"00:00:00:00:00:00","cdIP":"0.0.0.0","connApMac":"00:00:00:00:00:00","cdName":"","cdModel":"",)"
              R"("cdType":"","cdBrand":"","cdNetworkInfo":"Home router","cddisplayType":"","cdConnectionInterface":"",)"
              R"("connSsid":"","downloadBw":"","uploadBw":"","deviceSignalStrength":"","deviceLinkRate":"",)"
              R"("cdStatus":"","cdTaggedStatus":"","cdBlockedStatus":""})");
    // Which line of the code it was is its own business.
    const std::string error = std::string("Error : ") + hab_error_string(HAB_NOSUCH_ITEM) + " || line : ";
    EXPECT_EQ(log.count_starting(error, 4), 17U);
    const auto lines = log.lines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
        return line.message.ends_with(" || field : DeviceMac' || table : DeviceIdList ");
    }));
}

TEST_F(Record, AnAddressThatCannotBeReadShowsTheBytesBeforeIt) {
    add_device(store, 4);
    StoreSpy spy;
    spy.fail("Dilsignature.DeviceIP", HAB_TIMEOUT);
    spy.fail("ConnectDeviceinfo.ConnAPMac", HAB_TIMEOUT);
    const std::string record = built(4, dro::kRecordNewDevice);
    EXPECT_EQ(json_value(record, "cdIP"), "10.0.0.0");
    EXPECT_EQ(json_value(record, "connApMac"), "0A:00:00:00:00:04");
}

TEST_F(Record, APayloadIsACopyCutAtItsLimit) {
    dro::Event event{"NDNEV", {}};
    EXPECT_EQ(dro::addConnectedDeviceDataToQueue(event, 4, "abcdef"), 4U);
    EXPECT_EQ(event.payload, "abcd");
    EXPECT_EQ(dro::addConnectedDeviceDataToQueue(event, 10, "abcdef"), 6U);
    EXPECT_EQ(event.payload, "abcdef");
}

}  // namespace
}  // namespace dro_test

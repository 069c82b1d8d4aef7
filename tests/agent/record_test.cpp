// A device's record: eighteen members, always there, in the order and under the keys that the cloud knows.
#include <algorithm>
#include <cstdint>

#include "dro_json.h"
#include "dro_utils.h"
#include "pipeline.h"

namespace dro_test {
namespace {

std::string built(int index, int mode) {
    const dro::Json object(cJSON_CreateObject());
    dro::getConnectedDeviceData(index, object.get(), mode);
    const dro::JsonText text(cJSON_PrintUnformatted(object.get()));
    return text.get();
}

class Record : public AgentTest {};

TEST_F(Record, IsExactUnderTheKeysOfItsReader) {
    add_device(store, 11);
    const auto expect = [&](int mode, const char* pending, bool answering) {
        store.set("DroStatus.cdilTransUuid", pending);
        EXPECT_EQ(built(11, mode), device_record(11, answering)) << mode << " " << pending;
    };
    expect(dro::kRecordNewDevice, "", false);
    expect(dro::kRecordNewDevice, "t-1", false);
    expect(dro::kRecordUpdate, "t-1", false);
    expect(dro::kRecordListSync, "", false);
    expect(dro::kRecordListSync, "Noop", false);
    expect(dro::kRecordListSync, "noop", true);
    expect(dro::kRecordListSync, "t-1", true);
}

TEST_F(Record, StateWordsHaveOneDigit) {
    constexpr char kUntouched = '?';
    const auto expect = [&](const std::string& word, char expected) {
        log.forget();
        std::uint16_t code = kUntouched;
        dro::getIntForStateString(word.c_str(), code);
        EXPECT_EQ(code, expected) << word;
        EXPECT_EQ(log.has("[DROAGENT] - Invalid state value " + word + "\n", 4), expected == kUntouched) << word;
    };
    for (const char* word : {"DOWN", "allow", "untag"}) {
        expect(word, '0');
    }
    for (const char* word : {"UP", "block", "both"}) {
        expect(word, '1');
    }
    expect("online", '2');
    expect("offline", '3');
    for (const char* word : {"up", "UPPER", "tag", ""}) {
        expect(word, kUntouched);
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
    // The line of code that stands in between is its own business.
    EXPECT_EQ(log.count_starting(std::string("Error : ") + hab_error_string(HAB_NOSUCH_ITEM) + " || line : ", 4), 17U);
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

}  // namespace
}  // namespace dro_test

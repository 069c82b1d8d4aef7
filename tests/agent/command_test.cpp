// Cloud commands: each envelope's log line, acknowledgement and store writes.
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_envelope.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class Command : public AgentTest {
 protected:
    // Checks the results of a message: the parser's return value, one log line and all acknowledgements.
    void expect(const std::string& message, int result, const std::string& said, int level, const Texts& acks) {
        SCOPED_TRACE(message);
        forget();
        EXPECT_EQ(dro::parseUUIDBaseBuffer(message.c_str()), result);
        EXPECT_TRUE(log.has(said, level)) << said;
        EXPECT_EQ(acknowledgements(0), acks);
    }

    static std::string text_of(std::size_t length) { return std::string(length, 'x'); }
    // A data object whose last member is a text of this length. `before` holds its other members.
    static std::string data_with(const std::string& name, std::size_t length, const std::string& before = "") {
        return "{" + before + "\"" + name + "\":\"" + text_of(length) + "\"}";
    }
};

constexpr const char* kSchedule = "UPDATE_DTN_SCHEDULE";

TEST_F(Command, RefusesAMissingMember) {
    constexpr const char* kNoMac = "CD MAC is not present!\n";
    constexpr const char* kMacReason = "Invalid Argument cdMac";
    constexpr const char* kNoStatus = "Status is not present!\n";
    constexpr const char* kStatusReason = "Invalid Argument Status";
    const Cases<const char*, const char*, const char*, int, const char*> cases{
        {kSchedule, "{}", "timeZone is not present!\n", 2, "Invalid Argument timeZone"},
        {kSchedule, R"({"timeZone":""})", "startTime is not present!\n", 2, "Invalid Argument startTime"},
        {kSchedule, R"({"timeZone":"","startTime":""})", "endTime is not present!\n", 2, "Invalid Argument endTime"},
        {"TAG_CD", "{}", kNoMac, 2, kMacReason},
        {"TAG_CD", R"({"cdMac":""})", "tagStatus is not present!\n", 2, "Invalid Argument tagStatus"},
        {"CUSTOMIZE_CD", R"({"cdMac":7})", kNoMac, 4, kMacReason},
        {"BLOCK_CD", "", kNoMac, 2, kMacReason},
        {"BLOCK_CD", R"("no object")", kNoMac, 2, kMacReason},
        {"BLOCK_CD", R"({"CDMAC":"02:00:00:00:00:01"})", kNoMac, 2, kMacReason},
        {"UNBLOCK_CD", R"({"cdMac":null})", kNoMac, 2, kMacReason},
        {"BLOCK_CD_BULK", "{}", kNoMac, 2, kMacReason},
        {"UNBLOCK_CD_BULK", "{}", kNoMac, 1, kMacReason},
        {"REMOVE_CD", "{}", kNoMac, 2, kMacReason},
        {"FETCH_CD", R"({"fetchFor":"x"})", kNoStatus, 2, kStatusReason},
        {"ACTIVATE_CIRCLE", "{}", kNoStatus, 2, kStatusReason},
        {"DEACTIVATE_CIRCLE", "", kNoStatus, 2, kStatusReason}};
    for (const auto& [command, data, said, level, reason] : cases) {
        expect(envelope("u", command, data), -1, said, level, {std::string("u 0 ") + reason});
    }
}

TEST_F(Command, DropsAMemberThatIsTooLong) {
    constexpr const char* kMac = "Overflow of cdMAC buffer\n";
    constexpr const char* kType = "Overflow of cdType buffer\n";
    const std::string mac = R"("cdMac":"",)";
    const Cases<const char*, std::string, const char*> cases{
        {kSchedule, data_with("timeZone", 20), "Overflow of timeZone buffer\n"},
        {kSchedule, data_with("startTime", 20, R"("timeZone":"",)"), "Overflow of startTime buffer\n"},
        {kSchedule, data_with("endTime", 20, R"("timeZone":"","startTime":"",)"), "Overflow of endTime buffer\n"},
        {"TAG_CD", data_with("cdMac", 20), kMac},
        {"UNBLOCK_CD", data_with("cdMac", 20), kMac},
        {"REMOVE_CD", data_with("cdMac", 20), kMac},
        {"CUSTOMIZE_CD", data_with("cdMac", 20), kMac},
        {"CUSTOMIZE_CD", data_with("cdName", 128, mac), "Overflow of cdName buffer\n"},
        {"CUSTOMIZE_CD", data_with("cdType", 32, mac), kType},
        {"CUSTOMIZE_CD", data_with("cdBrand", 32, mac), kType},
        {"CUSTOMIZE_CD", data_with("cdModel", 32, mac), kType}};
    for (const auto& [command, data, said] : cases) {
        expect(envelope("u", command, data), -1, said, 4, {});
    }
}

TEST_F(Command, ChecksTheEnvelopeItself) {
    constexpr const char* kUnknown = "Invalid Command for Operation\n";
    const Cases<std::string, int, const char*, Texts> cases{
        {"no JSON", -1, "Buffer is no JSON\n", {}},
        {R"({"cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", {}},
        {R"({"UUID":5,"cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", {}},
        {R"({"uuid":"u","cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", {}},
        {envelope(text_of(128), "X"), -1, "Overflow of UUID buffer\n", {}},
        {R"({"UUID":"u"})", -1, "CMD is not present!\n", {"u 0 Invalid Argument CMD"}},
        {R"({"UUID":"u","cmd":7})", -1, "CMD is not present!\n", {"u 0 Invalid Argument CMD"}},
        {envelope("u", text_of(128)), -1, "Overflow of cmd buffer\n", {}},
        {envelope("u", text_of(127)), 0, kUnknown, {"u 0 Invalid Command"}},
        {envelope("u", "block_cd"), 0, kUnknown, {"u 0 Invalid Command"}},
        {envelope("u", "BLOCK_CD "), 0, "data object is not present!\n", {"u 0 Invalid Command"}},
        {envelope(text_of(127), "X"), 0, kUnknown, {text_of(127) + " 0 Invalid Command"}}};
    for (const auto& [message, result, said, acks] : cases) {
        expect(message, result, said, 0, acks);
    }
}

TEST_F(Command, ReportsAStoreThatFails) {
    const char* const one = R"({"cdMac":"02:00:00:00:00:01","tagStatus":1})";
    const char* const list = R"({"elements":[{"cdMac":"02:00:00:00:00:01"}]})";
    const char* const unsuccessful = "u 0 HAB Transaction not successful";
    const char* const listFailed = "u 0 failed to set Mac on DALH";
    const Cases<const char*, const char*, const char*, const char*> cases{
        {"BLOCK_CD", one, "DALHConfig.ProcessID", "u 0 Success"},
        {"UNBLOCK_CD", one, "DALHConfig.FeatureID", "u 1 Success"},
        {"TAG_CD", one, "DALHConfig.ProcessID", "u 0 Success"},
        {"BST_ENABLE", one, "DALHConfig.ProcessID", "u 0 Success"},
        {"DEVICE_CLAIMED", one, "DALHConfig.ProcessID", "u 0 Unable to set claim"},
        {"CUSTOMIZE_CD", one, "DALHConfig.DeviceMAC", unsuccessful},
        {"CUSTOMIZE_CD", one, "DALHConfig.DisplayModel", unsuccessful},
        {"CUSTOMIZE_CD", one, "DALHConfig.FeatureID", unsuccessful},
        {"REMOVE_CD", one, "DALHConfig.DeviceMAC", unsuccessful},
        {"REMOVE_CD", one, "DALHConfig.FeatureID", unsuccessful},
        {"REMOVE_CD", one, "DALHConfig.ProcessID", unsuccessful},
        {"BLOCK_CD_BULK", list, "DALHprofileMAC.MACcount", listFailed},
        {"BLOCK_CD_BULK", list, "DALHprofileMAC.ProfileMAC1", listFailed},
        {"UNBLOCK_CD_BULK", list, "DALHConfig.FeatureID", listFailed},
        {"UNBLOCK_CD_BULK", list, "DALHConfig.ProcessID", listFailed}};
    for (const auto& [command, data, failing, acknowledgement] : cases) {
        SCOPED_TRACE(failing);
        StoreSpy spy;
        spy.fail(failing, HAB_TIMEOUT);
        expect(envelope("u", command, data), 0, std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4,
               {acknowledgement});
    }
}

TEST_F(Command, WritesItsRequestAndTriggersLast) {
    const char* const one = R"({"cdMac":"02:00:00:00:00:01","tagStatus":3})";
    const char* const success = "u 1 Success";
    const auto claim = [](const std::string& fetchFor) {
        return "DroCfg.claimState=true DroStatus.cdilTransUuid=u DroStatus.cdilfetchFor=" + fetchFor +
               " DILGeneral.CDILTrigger=true FeatureID=8 CDILRequest=occupied ProcessID=1 ";
    };
    // Members of the maximum length.
    const std::string time = text_of(19);
    const std::string times = data_with("endTime", 19, R"("timeZone":")" + time + R"(","startTime":")" + time + "\",");
    const std::string word = text_of(31);
    const std::string words = R"("cdType":")" + word + R"(","cdBrand":")" + word + R"(","cdModel":")" + word + "\",";
    const std::string longest = data_with("cdMac", 19, R"("cdName":")" + text_of(127) + "\"," + words);
    const Cases<const char*, std::string, std::string, const char*> cases{
        // command, data, writes (to DALHConfig unless another table is named), acknowledgement (null: the list itself)
        {"DEVICE_CLAIMED", "", claim(""), nullptr},
        {"DEVICE_CLAIMED", R"({"fetchFor":"123456789012345"})", claim("123456789012345"), nullptr},
        {"DEVICE_CLAIMED", R"({"fetchFor":"12345678901234567890"})", claim("123456789012345"), nullptr},
        {"BLOCK_CD", one, "FeatureID=7 blockCdMAC=02:00:00:00:00:01 ProcessID=1 ", success},
        {"BLOCK_CD", R"({"cdMac":"nonsense"})", "ProcessID=1 ", success},
        {"UNBLOCK_CD", one, "FeatureID=6 allowCdMAC=02:00:00:00:00:01 ProcessID=1 ", success},
        {"TAG_CD", one, "TaggedDeviceMAC=02:00:00:00:00:01 FeatureID=2 TagStatus=offline ProcessID=1 ", success},
        {"TAG_CD", R"({"cdMac":"","tagStatus":0})", "FeatureID=2 TagStatus=untag ProcessID=1 ", success},
        {"TAG_CD", R"({"cdMac":"","tagStatus":1})", "FeatureID=2 TagStatus=both ProcessID=1 ", success},
        {"TAG_CD", R"({"cdMac":"","tagStatus":2})", "FeatureID=2 TagStatus=online ProcessID=1 ", success},
        {"TAG_CD", R"({"cdMac":"","tagStatus":"2"})", "FeatureID=2 TagStatus=untag ProcessID=1 ", success},
        {"TAG_CD", R"({"cdMac":"","tagStatus":4})", "FeatureID=2 ", "u 0 Invalid tagState"},
        {"TAG_CD", R"({"cdMac":"","tagStatus":-1})", "FeatureID=2 ", "u 0 Invalid tagState"},
        {"BST_ENABLE", "", "FeatureID=5 BSTStateuserDRO=ENABLE ProcessID=1 ", success},
        {"BST_DISABLE", "", "FeatureID=5 BSTStateuserDRO=DISABLE ProcessID=1 ", success},
        {"CUSTOMIZE_CD", one,
         "DeviceMAC=02:00:00:00:00:01 DisplayName= DeviceType= DisplayBrand= DisplayModel= FeatureID=9 ProcessID=1 ",
         success},
        {"CUSTOMIZE_CD", longest,
         "DisplayName=" + text_of(127) + " DeviceType=" + word + " DisplayBrand=" + word + " DisplayModel=" + word +
             " FeatureID=9 ProcessID=1 ",
         success},
        {"CUSTOMIZE_CD", "{\"cdMac\":\"-\",\"cdType\":\"caf\xc3\xa9\"}", "DisplayName= DeviceType=caf\xc3\xa9 ",
         "u 0 HAB Transaction not successful"},
        {"REMOVE_CD", one, "DeviceMAC=02:00:00:00:00:01 FeatureID=10 ProcessID=1 ", success},
        {"BLOCK_CD_BULK", R"({"elements":[{"cdMac":"02:00:00:00:00:05"},{"cdMac":5},{"cdMac":"02:00:00:00:00:06"}]})",
         "DALHprofileMAC.MACcount=3 DALHprofileMAC.ProfileMAC1=02:00:00:00:00:05 "
         "DALHprofileMAC.ProfileMAC3=02:00:00:00:00:06 FeatureID=11 ProcessID=1 ",
         success},
        {"UNBLOCK_CD_BULK", R"({"elements":"none"})", "DALHprofileMAC.MACcount=0 FeatureID=12 ProcessID=1 ", success},
        {"UNBLOCK_CD_BULK", R"({"elements":[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,{"cdMac":"02:00:00:00:00:14"}]})",
         "DALHprofileMAC.MACcount=20 DALHprofileMAC.ProfileMAC20=02:00:00:00:00:14 FeatureID=12 ProcessID=1 ", success},
        {"UNBLOCK_CD_BULK", R"({"elements":[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]})", "",
         "u 0 Mac Array elements greater than 20"},
        {kSchedule, times, "", success}};
    for (const auto& [command, data, expected, acknowledgement] : cases) {
        SCOPED_TRACE(std::string(command) + " " + data);
        cloud.forget();
        const StoreSpy spy;
        EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", command, data).c_str()), 0);
        std::string writes;
        for (const std::string& write : spy.writes()) {
            writes += (write.starts_with("DALHConfig.") ? write.substr(11) : write) + " ";
        }
        EXPECT_EQ(writes, expected);
        const Texts acks = acknowledgement != nullptr ? Texts{acknowledgement} : Texts{};
        EXPECT_EQ(acknowledgements(acks.size()), acks);
    }
    EXPECT_TRUE(log.in_order({"fetchFor is not present!\n", "getting fetchFor\n", "Overflow of UUID buffer\n"}));
    for (const char* text : {"untag value matched!\n", "tag for both value matched!\n", "online tag value matched!\n",
                             "offline tag value matched!\n", "Bulk Block unblock function success\n"}) {
        EXPECT_TRUE(log.has(text, 1)) << text;
    }
    for (const std::string name : {"Name", "Type", "Brand", "Model"}) {
        EXPECT_TRUE(log.has("CD " + name + " is not present! Perhaps cd" + name + " is not customized!\n", 4)) << name;
    }
    const std::string schedule = "timeZone = " + time + ", startTime = " + time + ", endTime = " + time + "\n";
    EXPECT_TRUE(
        log.has("Got info for DTNSchedule time change\nData: UUID = u, cmd = UPDATE_DTN_SCHEDULE, " + schedule, 1));
    const StoreSpy spy;
    EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", "FETCH_CD", R"({"status":0})").c_str()), 0);
    EXPECT_EQ(spy.writes().at(0), "RADebugLog.dbgArg1=FETCH_CD command recieved from cloud");
}

TEST_F(Command, AcknowledgesByteForByteAndRetriesOnlySilence) {
    EXPECT_EQ(dro::sendTransactionACK("t-1", 0, "a \"reason\""), 0);
    EXPECT_EQ(after_signature(cloud.requests("transactionAck/").at(0).body),
              R"(,"transactionId":"t-1","transactionStatus":"0","failureReason":"a "reason""})");
    EXPECT_EQ(dro::sendTransactionACK("t-1", 0, text_of(600).c_str()), 0);
    EXPECT_EQ(cloud.requests("transactionAck/").at(1).body.size(), 511U);
    cloud.forget();
    cloud.script("transactionAck/", {kRefused});
    store.set("CircleCfgInternal.activationStatusDROA", "activated");
    const StoreSpy spy;
    EXPECT_EQ(dro::sendTransactionACK("t-2", 1, "Success"), 0);
    EXPECT_EQ(cloud.requests().size(), 1U);
    EXPECT_TRUE(spy.writes().empty()) << "the Circle state was not heard";
    cloud.forget();
    cloud.answer_all(text_answer("", 503));
    EXPECT_EQ(dro::sendTransactionACK("t-3", 1, "Success"), 1);
    expect_three_attempts(true);
    EXPECT_EQ(log.count("No response from DRO Cloud\n"), 3U);
}

}  // namespace
}  // namespace dro_test

// Cloud commands: what each envelope comes to - its log line, its acknowledgement, its writes to the store.
#include <string>
#include <vector>

#include "dro_get_set_config.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class Command : public AgentTest {};

std::string text_of(std::size_t length) {
    return std::string(length, 'x');
}

struct BadMember {
    const char* command;
    std::string data;
    const char* logText;
    int level;
    const char* reason;  // null: not acknowledged
};

TEST_F(Command, RefusesMissingAndOverlongMembers) {
    const char* noMac = "CD MAC is not present!\n";
    const char* macReason = "Invalid Argument cdMac";
    const std::string longMac = R"({"cdMac":")" + text_of(20) + R"("})";
    const std::string mac = R"("cdMac":"02:00:00:00:00:01")";
    const std::vector<BadMember> cases{
        {"UPDATE_DTN_SCHEDULE", "{}", "timeZone is not present!\n", 2, "Invalid Argument timeZone"},
        {"UPDATE_DTN_SCHEDULE", R"({"timeZone":"a"})", "startTime is not present!\n", 2, "Invalid Argument startTime"},
        {"UPDATE_DTN_SCHEDULE", R"({"timeZone":"a","startTime":"b"})", "endTime is not present!\n", 2,
         "Invalid Argument endTime"},
        {"UPDATE_DTN_SCHEDULE", R"({"timeZone":")" + text_of(20) + R"("})", "Overflow of timeZone buffer\n", 4,
         nullptr},
        {"UPDATE_DTN_SCHEDULE", R"({"timeZone":"a","startTime":")" + text_of(20) + R"("})",
         "Overflow of startTime buffer\n", 4, nullptr},
        {"UPDATE_DTN_SCHEDULE", R"({"timeZone":"a","startTime":"b","endTime":")" + text_of(20) + R"("})",
         "Overflow of endTime buffer\n", 4, nullptr},
        {"TAG_CD", "{}", noMac, 2, macReason},
        {"TAG_CD", longMac, "Overflow of cdMAC buffer\n", 4, nullptr},
        {"TAG_CD", "{" + mac + "}", "tagStatus is not present!\n", 2, "Invalid Argument tagStatus"},
        {"CUSTOMIZE_CD", R"({"cdMac":7})", noMac, 4, macReason},
        {"CUSTOMIZE_CD", "{" + mac + R"(,"cdName":")" + text_of(128) + R"("})", "Overflow of cdName buffer\n", 4,
         nullptr},
        {"CUSTOMIZE_CD", "{" + mac + R"(,"cdBrand":")" + text_of(32) + R"("})", "Overflow of cdType buffer\n", 4,
         nullptr},
        {"CUSTOMIZE_CD", longMac, "Overflow of cdMAC buffer\n", 4, nullptr},
        {"CUSTOMIZE_CD", "{" + mac + R"(,"cdType":")" + text_of(32) + R"("})", "Overflow of cdType buffer\n", 4,
         nullptr},
        {"CUSTOMIZE_CD", "{" + mac + R"(,"cdModel":")" + text_of(32) + R"("})", "Overflow of cdType buffer\n", 4,
         nullptr},
        {"BLOCK_CD", "", noMac, 2, macReason},
        {"BLOCK_CD", R"("no object")", noMac, 2, macReason},
        {"BLOCK_CD", R"({"CDMAC":"02:00:00:00:00:01"})", noMac, 2, macReason},
        {"UNBLOCK_CD", R"({"cdMac":null})", noMac, 2, macReason},
        {"UNBLOCK_CD", longMac, "Overflow of cdMAC buffer\n", 4, nullptr},
        {"BLOCK_CD_BULK", "{}", noMac, 2, macReason},
        {"UNBLOCK_CD_BULK", "{}", noMac, 1, macReason},
        {"FETCH_CD", R"({"fetchFor":"x"})", "Status is not present!\n", 2, "Invalid Argument Status"},
        {"ACTIVATE_CIRCLE", "{}", "Status is not present!\n", 2, "Invalid Argument Status"},
        {"DEACTIVATE_CIRCLE", "", "Status is not present!\n", 2, "Invalid Argument Status"},
        {"REMOVE_CD", "{}", noMac, 2, macReason},
        {"REMOVE_CD", longMac, "Overflow of cdMAC buffer\n", 4, nullptr},
    };
    std::size_t acknowledged = 0;
    for (const BadMember& bad : cases) {
        SCOPED_TRACE(std::string(bad.command) + " " + bad.data);
        log.forget();
        EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", bad.command, bad.data).c_str()), -1);
        EXPECT_TRUE(log.has(bad.logText, bad.level));
        if (bad.reason != nullptr) {
            EXPECT_EQ(acknowledgements(++acknowledged).back(), std::string("u 0 ") + bad.reason);
        }
        EXPECT_EQ(cloud.requests().size(), acknowledged);
    }
}

TEST_F(Command, ChecksTheEnvelopeItself) {
    const struct {
        std::string message;
        int result;
        const char* logText;
        const char* reason;  // null: not acknowledged
    } cases[] = {
        {"no JSON", -1, "Buffer is no JSON\n", nullptr},
        {R"({"cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", nullptr},
        {R"({"UUID":5,"cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", nullptr},
        {R"({"uuid":"u","cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", nullptr},
        {envelope(text_of(128), "X"), -1, "Overflow of UUID buffer\n", nullptr},
        {R"({"UUID":"u"})", -1, "CMD is not present!\n", "Invalid Argument CMD"},
        {R"({"UUID":"u","cmd":7})", -1, "CMD is not present!\n", "Invalid Argument CMD"},
        {envelope("u", text_of(128)), -1, "Overflow of cmd buffer\n", nullptr},
        {envelope("u", text_of(127)), 0, "Invalid Command for Operation\n", "Invalid Command"},
        {envelope("u", "block_cd"), 0, "Invalid Command for Operation\n", "Invalid Command"},
        {envelope("u", "BLOCK_CD "), 0, "data object is not present!\n", "Invalid Command"},
        {envelope(text_of(127), "X"), 0, "Invalid Command for Operation\n", "Invalid Command"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        log.forget();
        cloud.forget();
        EXPECT_EQ(dro::parseUUIDBaseBuffer(c.message.c_str()), c.result);
        EXPECT_TRUE(log.has(c.logText));
        const std::string uuid = json_value(c.message, "UUID");
        const auto expected = c.reason != nullptr ? Texts{uuid + " 0 " + c.reason} : Texts{};
        EXPECT_EQ(acknowledgements(expected.size()), expected);
    }
}

TEST_F(Command, TakesWhatIsOptionalOrJustFits) {
    const std::string longest = R"({"cdMac":")" + text_of(19) + R"(","cdName":")" + text_of(127) + R"(","cdType":")" +
                                text_of(31) + R"(","cdBrand":")" + text_of(31) + R"(","cdModel":")" + text_of(31) +
                                R"("})";
    EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", "CUSTOMIZE_CD", longest).c_str()), 0);
    EXPECT_EQ(store.get("DALHConfig.DisplayName"), text_of(127));
    EXPECT_EQ(store.get("DALHConfig.DeviceType") + store.get("DALHConfig.DisplayBrand"), text_of(62));
    EXPECT_EQ(store.get("DALHConfig.DisplayModel"), text_of(31));
    EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", "CUSTOMIZE_CD", R"({"cdMac":""})").c_str()), 0);
    for (const char* missing : {"CD Name is not present! Perhaps cdName is not customized!\n",
                                "CD Type is not present! Perhaps cdType is not customized!\n",
                                "CD Brand is not present! Perhaps cdBrand is not customized!\n",
                                "CD Model is not present! Perhaps cdModel is not customized!\n"}) {
        EXPECT_TRUE(log.has(missing, 4)) << missing;
    }
    EXPECT_EQ(store.get("DALHConfig.DisplayName"), "");
    const std::string time = text_of(19);
    const std::string times =
        R"({"timeZone":")" + time + R"(","startTime":")" + time + R"(","endTime":")" + time + R"("})";
    EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", "UPDATE_DTN_SCHEDULE", times).c_str()), 0);
    EXPECT_TRUE(log.has("Got info for DTNSchedule time change\nData: UUID = u, cmd = UPDATE_DTN_SCHEDULE, timeZone = " +
                            time + ", startTime = " + time + ", endTime = " + time + "\n",
                        1));
    EXPECT_EQ(acknowledgements(3), Texts(3, "u 1 Success"));
}

// The list that is asked for answers the transaction; nothing else does.
TEST_F(Command, ClaimsAndAsksForTheList) {
    const struct {
        const char* data;
        const char* fetchFor;
        const char* logText;
    } cases[] = {{"", "", "fetchFor is not present!\n"},
                 {R"({"fetchFor":"123456789012345"})", "123456789012345", "getting fetchFor\n"},
                 {R"({"fetchFor":"12345678901234567890"})", "123456789012345", "Overflow of UUID buffer\n"}};
    for (const auto& c : cases) {
        const StoreSpy spy;
        EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u-9", "DEVICE_CLAIMED", c.data).c_str()), 0);
        EXPECT_EQ(spy.writes(),
                  (Texts{"DroCfg.claimState=true", "DroStatus.cdilTransUuid=u-9",
                         std::string("DroStatus.cdilfetchFor=") + c.fetchFor, "DILGeneral.CDILTrigger=true",
                         "DALHConfig.FeatureID=8", "DALHConfig.CDILRequest=occupied", "DALHConfig.ProcessID=1"}));
        EXPECT_TRUE(log.has(c.logText)) << c.data;
    }
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(Command, ReportsAStoreThatFails) {
    const char* const one = R"({"cdMac":"02:00:00:00:00:01","tagStatus":1})";
    const char* const list = R"({"elements":[{"cdMac":"02:00:00:00:00:01"}]})";
    const char* const unsuccessful = "u 0 HAB Transaction not successful";
    const char* const listFailed = "u 0 failed to set Mac on DALH";
    const struct {
        const char* command;
        const char* data;
        const char* failing;
        const char* acknowledgement;
    } cases[] = {{"BLOCK_CD", one, "DALHConfig.ProcessID", "u 0 Success"},
                 {"UNBLOCK_CD", one, "DALHConfig.FeatureID", "u 1 Success"},
                 {"TAG_CD", one, "DALHConfig.ProcessID", "u 0 Success"},
                 {"BST_ENABLE", one, "DALHConfig.ProcessID", "u 0 Success"},
                 {"DEVICE_CLAIMED", one, "DALHConfig.ProcessID", "u 0 Unable to set claim"},
                 {"CUSTOMIZE_CD", one, "DALHConfig.DisplayModel", unsuccessful},
                 {"CUSTOMIZE_CD", one, "DALHConfig.FeatureID", unsuccessful},
                 {"REMOVE_CD", one, "DALHConfig.FeatureID", unsuccessful},
                 {"REMOVE_CD", one, "DALHConfig.ProcessID", unsuccessful},
                 {"BLOCK_CD_BULK", list, "DALHprofileMAC.MACcount", listFailed},
                 {"UNBLOCK_CD_BULK", list, "DALHConfig.FeatureID", listFailed},
                 {"UNBLOCK_CD_BULK", list, "DALHConfig.ProcessID", listFailed}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + c.failing);
        cloud.forget();
        log.forget();
        StoreSpy spy;
        spy.fail(c.failing, HAB_TIMEOUT);
        EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", c.command, c.data).c_str()), 0);
        EXPECT_EQ(acknowledgements(1), Texts{c.acknowledgement});
        EXPECT_TRUE(log.has(std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4));
    }
}

TEST_F(Command, WritesItsRequestAndTriggersLast) {
    const char* const one = R"({"cdMac":"02:00:00:00:00:01","tagStatus":3})";
    const char* const success = "u 1 Success";
    const struct {
        const char* command;
        const char* data;
        const char* writes;  // to DALHConfig unless another table is named
        const char* acknowledgement;
    } cases[] = {
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
        {"CUSTOMIZE_CD", "{\"cdMac\":\"-\",\"cdType\":\"caf\xc3\xa9\"}",
         "DisplayName= ", "u 0 HAB Transaction not successful"},
        {"REMOVE_CD", one, "DeviceMAC=02:00:00:00:00:01 FeatureID=10 ProcessID=1 ", success},
        {"BLOCK_CD_BULK", R"({"elements":[{"cdMac":"02:00:00:00:00:05"},{"cdMac":5},{"cdMac":"02:00:00:00:00:06"}]})",
         "DALHprofileMAC.MACcount=3 DALHprofileMAC.ProfileMAC1=02:00:00:00:00:05 "
         "DALHprofileMAC.ProfileMAC3=02:00:00:00:00:06 FeatureID=11 ProcessID=1 ",
         success},
        {"UNBLOCK_CD_BULK", R"({"elements":"none"})", "DALHprofileMAC.MACcount=0 FeatureID=12 ProcessID=1 ", success},
        {"UPDATE_DTN_SCHEDULE", R"({"timeZone":"UTC","startTime":"1","endTime":"2"})", "", success},
    };
    StoreWatch watch({"DALHConfig", "DALHprofileMAC"});
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + c.data);
        cloud.forget();
        EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", c.command, c.data).c_str()), 0);
        std::string writes;
        for (const std::string& write : watch.take()) {
            writes += (write.starts_with("DALHConfig.") ? write.substr(11) : write) + " ";
        }
        EXPECT_EQ(writes, c.writes);
        EXPECT_EQ(acknowledgements(1), Texts{c.acknowledgement});
    }
    for (const char* text : {"untag value matched!\n", "tag for both value matched!\n", "online tag value matched!\n",
                             "offline tag value matched!\n", "Bulk Block unblock function success\n"}) {
        EXPECT_TRUE(log.has(text, 1)) << text;
    }
}

TEST_F(Command, AcceptsTwentyBulkElementsAndNoMore) {
    for (const int count : {20, 21}) {
        std::string elements;
        for (int i = 0; i < count; ++i) {
            elements += std::string(i > 0 ? "," : "") + R"({"cdMac":"02:00:00:00:00:01"})";
        }
        cloud.forget();
        dro::parseUUIDBaseBuffer(envelope("u", "UNBLOCK_CD_BULK", R"({"elements":[)" + elements + "]}").c_str());
        EXPECT_EQ(acknowledgements(1), Texts{count == 20 ? "u 1 Success" : "u 0 Mac Array elements greater than 20"});
        EXPECT_EQ(store.get("DALHprofileMAC.MACcount"), "20");
    }
}

TEST_F(Command, AcknowledgesByteForByteAndRetriesOnlySilence) {
    EXPECT_EQ(dro::sendTransactionACK("t-1", 0, "a \"reason\""), 0);
    EXPECT_EQ(after_signature(cloud.requests("transactionAck/").at(0).body),
              R"(,"transactionId":"t-1","transactionStatus":"0","failureReason":"a "reason""})");
    EXPECT_EQ(dro::sendTransactionACK("t-1", 0, text_of(600).c_str()), 0);
    EXPECT_EQ(cloud.requests("transactionAck/").at(1).body.size(), 511U);
    cloud.forget();
    cloud.script("transactionAck/", {refused()});
    EXPECT_EQ(dro::sendTransactionACK("t-2", 1, "Success"), 0);
    EXPECT_EQ(cloud.requests().size(), 1U);
    EXPECT_TRUE(log.has("\n Trans ACK API Status Failure response\n"));
    cloud.forget();
    cloud.answer_all(empty_answer(503));
    EXPECT_EQ(dro::sendTransactionACK("t-3", 1, "Success"), 1);
    expect_three_attempts(cloud.requests("transactionAck/"), std::chrono::steady_clock::now(), true);
    EXPECT_EQ(log.count("No response from DRO Cloud\n"), 3U);
}

TEST_F(Command, JudgesTheAnswerByItsStatus) {
    const struct {
        const char* answer;
        const char* said;
        int level;
        int result;
    } cases[] = {{R"({"status":1})", "\nTrans ACK API Status Success response\n", 1, 0},
                 {R"({"status":0})", "\n Trans ACK API Status Failure response\n", 4, -1},
                 {R"({"status":"1"})", "\n Trans ACK API Status Failure response\n", 4, -1},
                 {R"({"status":7})", "No Status code received...\n", 4, -1},
                 {R"({"Status":1})", " Parse input string for key status not found\n", 4, 1}};
    for (const auto& c : cases) {
        log.forget();
        EXPECT_EQ(dro::processTransAckApiResponse(c.answer), c.result) << c.answer;
        EXPECT_TRUE(log.has(c.said, c.level)) << c.answer;
    }
    EXPECT_EQ(dro::processTransAckApiResponse("no JSON"), 1);
}

TEST_F(Command, NotesTheAcknowledgedCircleState) {
    const struct {
        const char* activation;
        const char* enabled;
        Texts states;
    } cases[] = {{"activated", "none", {"activated"}},
                 {"provisioned", "enabled", {"provisioned", "enabled"}},
                 {"deactivated", "disabled", {"disabled"}},
                 {"none", "fail", {}}};
    for (const auto& c : cases) {
        store.set_all({{"CircleCfgInternal.activationStatusDROA", c.activation},
                       {"CircleCfgInternal.sorbEnableStatusDROA", c.enabled}});
        const StoreSpy spy;
        dro::sendTransactionACK("t", 1, "Success");
        Texts expected;
        for (const std::string& state : c.states) {
            expected.push_back("CircleDebug.sorbSyncDone=" + state);
        }
        EXPECT_EQ(spy.writes(), expected) << c.activation;
    }
    const StoreSpy spy;
    cloud.answer_all(refused());
    dro::sendTransactionACK("t", 1, "Success");
    EXPECT_TRUE(spy.writes().empty());
}

TEST(Checkpoints, HaveTheirTexts) {
    std::string all;
    for (unsigned i = 0; i < 10; ++i) {
        all += std::string(dro::getCdilDroagentCheckpointMessage(i)) + "|";
    }
    EXPECT_EQ(
        all,
        "CDIL payload creation start|CDIL payload creation done|CDIL Successfull|"
        "CDIL notification after dalh processing|CDIL payload enqueue successfull|Update DALH for CDIL processing|"
        "FETCH_CD command recieved from cloud|CDIL response initiate curl request to cloud|CDIL curl hit fail|"
        "Unknown|");
}

}  // namespace
}  // namespace dro_test

// Cloud commands: what each envelope comes to - its log line, its acknowledgement, its writes to the store.
#include <string>
#include <vector>

#include "agent_test.h"
#include "dro_get_set_config.h"

namespace dro_test {
namespace {

class Command : public AgentTest {};

using Texts = std::vector<std::string>;

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
        {"TAG_CD", "{}", noMac, 2, macReason},
        {"TAG_CD", longMac, "Overflow of cdMAC buffer\n", 4, nullptr},
        {"TAG_CD", "{" + mac + "}", "tagStatus is not present!\n", 2, "Invalid Argument tagStatus"},
        {"CUSTOMIZE_CD", R"({"cdMac":7})", noMac, 4, macReason},
        {"CUSTOMIZE_CD", "{" + mac + R"(,"cdName":")" + text_of(128) + R"("})", "Overflow of cdName buffer\n", 4,
         nullptr},
        {"CUSTOMIZE_CD", "{" + mac + R"(,"cdBrand":")" + text_of(32) + R"("})", "Overflow of cdType buffer\n", 4,
         nullptr},
        {"BLOCK_CD", "", noMac, 2, macReason},
        {"UNBLOCK_CD", longMac, "Overflow of cdMAC buffer\n", 4, nullptr},
        {"BLOCK_CD_BULK", "{}", noMac, 2, macReason},
        {"UNBLOCK_CD_BULK", "{}", noMac, 1, macReason},
        {"FETCH_CD", R"({"fetchFor":"x"})", "Status is not present!\n", 2, "Invalid Argument Status"},
        {"ACTIVATE_CIRCLE", "{}", "Status is not present!\n", 2, "Invalid Argument Status"},
        {"REMOVE_CD", "{}", noMac, 2, macReason},
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
        Texts acknowledged;
    } cases[] = {
        {"no JSON", -1, "Buffer is no JSON\n", {}},
        {R"({"cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", {}},
        {R"({"UUID":5,"cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", {}},
        {R"({"uuid":"u","cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", {}},
        {R"({"UUID":")" + text_of(128) + R"(","cmd":"X"})", -1, "Overflow of UUID buffer\n", {}},
        {R"({"UUID":"u"})", -1, "CMD is not present!\n", {"u 0 Invalid Argument CMD"}},
        {R"({"UUID":"u","cmd":")" + text_of(128) + R"("})", -1, "Overflow of cmd buffer\n", {}},
        {R"({"UUID":"u","cmd":"block_cd"})", 0, "Invalid Command for Operation\n", {"u 0 Invalid Command"}},
        {R"({"UUID":"u","cmd":"BLOCK_CD "})", 0, "data object is not present!\n", {"u 0 Invalid Command"}},
        {R"({"UUID":")" + text_of(127) + R"(","cmd":"X"})",
         0,
         "Invalid Command for Operation\n",
         {text_of(127) + " 0 Invalid Command"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        log.forget();
        cloud.forget();
        EXPECT_EQ(dro::parseUUIDBaseBuffer(c.message.c_str()), c.result);
        EXPECT_TRUE(log.has(c.logText));
        EXPECT_EQ(acknowledgements(c.acknowledged.size()), c.acknowledged);
    }
}

TEST_F(Command, WritesItsRequestAndTriggersLast) {
    const struct {
        const char* command;
        const char* data;
        Texts writes;
        const char* acknowledgement;
    } cases[] = {
        {"BLOCK_CD",
         R"({"cdMac":"02:00:00:00:00:01"})",
         {"DALHConfig.FeatureID=7", "DALHConfig.blockCdMAC=02:00:00:00:00:01", "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"BLOCK_CD", R"({"cdMac":"nonsense"})", {"DALHConfig.ProcessID=1"}, "1 Success"},
        {"UNBLOCK_CD",
         R"({"cdMac":"02:00:00:00:00:01"})",
         {"DALHConfig.FeatureID=6", "DALHConfig.allowCdMAC=02:00:00:00:00:01", "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"TAG_CD",
         R"({"cdMac":"02:00:00:00:00:02","tagStatus":3})",
         {"DALHConfig.TaggedDeviceMAC=02:00:00:00:00:02", "DALHConfig.FeatureID=2", "DALHConfig.TagStatus=offline",
          "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"TAG_CD",
         R"({"cdMac":"02:00:00:00:00:02","tagStatus":-1})",
         {"DALHConfig.TaggedDeviceMAC=02:00:00:00:00:02", "DALHConfig.FeatureID=2"},
         "0 Invalid tagState"},
        {"TAG_CD",
         R"({"cdMac":"02:00:00:00:00:02","tagStatus":"2"})",
         {"DALHConfig.TaggedDeviceMAC=02:00:00:00:00:02", "DALHConfig.FeatureID=2", "DALHConfig.TagStatus=untag",
          "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"BST_DISABLE",
         "",
         {"DALHConfig.FeatureID=5", "DALHConfig.BSTStateuserDRO=DISABLE", "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"CUSTOMIZE_CD",
         R"({"cdMac":"02:00:00:00:00:03"})",
         {"DALHConfig.DeviceMAC=02:00:00:00:00:03", "DALHConfig.DisplayName=", "DALHConfig.DeviceType=",
          "DALHConfig.DisplayBrand=", "DALHConfig.DisplayModel=", "DALHConfig.FeatureID=9", "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"CUSTOMIZE_CD",
         "{\"cdMac\":\"-\",\"cdType\":\"caf\xc3\xa9\"}",
         {"DALHConfig.DisplayName="},
         "0 HAB Transaction not successful"},
        {"REMOVE_CD",
         R"({"cdMac":"02:00:00:00:00:04"})",
         {"DALHConfig.DeviceMAC=02:00:00:00:00:04", "DALHConfig.FeatureID=10", "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"BLOCK_CD_BULK",
         R"({"elements":[{"cdMac":"02:00:00:00:00:05"},{"cdMac":"bad"},{"cdMac":"02:00:00:00:00:06"}]})",
         {"DALHprofileMAC.MACcount=3", "DALHprofileMAC.ProfileMAC1=02:00:00:00:00:05",
          "DALHprofileMAC.ProfileMAC3=02:00:00:00:00:06", "DALHConfig.FeatureID=11", "DALHConfig.ProcessID=1"},
         "1 Success"},
        {"UPDATE_DTN_SCHEDULE", R"({"timeZone":"UTC","startTime":"1","endTime":"2"})", {}, "1 Success"},
    };
    StoreWatch watch({"DALHConfig", "DALHprofileMAC"});
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + c.data);
        cloud.forget();
        EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", c.command, c.data).c_str()), 0);
        EXPECT_EQ(watch.take(), c.writes);
        EXPECT_EQ(acknowledgements(1), Texts{std::string("u ") + c.acknowledgement});
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
    const std::string body = cloud.requests("transactionAck/").at(0).body;
    const std::string start = body.substr(0, body.find(R"(,"serialNumber")"));
    EXPECT_EQ(body, start + R"(,"serialNumber":"FSN0123456789","transactionId":"t-1","transactionStatus":"0",)"
                            R"("failureReason":"a "reason""})");
    cloud.script("transactionAck/", {refused()});
    EXPECT_EQ(dro::sendTransactionACK("t-2", 1, "Success"), 0);
    EXPECT_EQ(cloud.requests().size(), 2U);
    EXPECT_TRUE(log.has("\n Trans ACK API Status Failure response\n"));
    cloud.answer_all(empty_answer());
    EXPECT_EQ(dro::sendTransactionACK("t-3", 1, "Success"), 1);
    EXPECT_EQ(cloud.requests().size(), 5U);
    EXPECT_EQ(log.count("No response from DRO Cloud\n"), 3U);
}

TEST_F(Command, LeavesTheEnableStateInTheDebugField) {
    store.set_all({{"CircleCfgInternal.activationStatusDROA", "provisioned"},
                   {"CircleCfgInternal.sorbEnableStatusDROA", "disabled"}});
    StoreWatch watch({"CircleDebug"});
    dro::sendTransactionACK("t", 1, "Success");
    EXPECT_EQ(watch.take().size(), 2U);
    EXPECT_EQ(store.get("CircleDebug.sorbSyncDone"), "disabled");
    EXPECT_STREQ(dro::getCdilDroagentCheckpointMessage(8), "CDIL curl hit fail");
    EXPECT_STREQ(dro::getCdilDroagentCheckpointMessage(9), "Unknown");
}

}  // namespace
}  // namespace dro_test

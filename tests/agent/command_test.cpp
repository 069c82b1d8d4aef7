// Cloud commands: each envelope's log line, acknowledgement and store writes.
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_device.h"
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
    // Checks that each of these commands is refused with this data.
    void refused(const Texts& commands, const std::string& data, const std::string& said, int level,
                 const Texts& acks) {
        for (const std::string& command : commands) {
            expect(envelope("u", command, data), -1, said, level, acks);
        }
    }

    static std::string text_of(std::size_t length) { return std::string(length, 'x'); }
    // A data object whose last member is a text of this length. `before` holds its other members.
    static std::string data_with(const std::string& name, std::size_t length, const std::string& before = "") {
        return "{" + before + "\"" + name + "\":\"" + text_of(length) + "\"}";
    }
};

constexpr const char* kSchedule = "UPDATE_DTN_SCHEDULE";

TEST_F(Command, RefusesAMissingMemberAndDropsOneThatIsTooLong) {
    constexpr const char* kNoMac = "CD MAC is not present!\n";
    const Texts macReason{"u 0 Invalid Argument cdMac"};
    refused({"TAG_CD", "BLOCK_CD", "UNBLOCK_CD", "BLOCK_CD_BULK", "REMOVE_CD"}, "{}", kNoMac, 2, macReason);
    refused({"UNBLOCK_CD_BULK"}, "{}", kNoMac, 1, macReason);
    refused({"CUSTOMIZE_CD"}, R"({"cdMac":7})", kNoMac, 4, macReason);
    for (const char* data : {"", R"("no object")", R"({"CDMAC":"02:00:00:00:00:01"})", R"({"cdMac":null})"}) {
        refused({"BLOCK_CD", "UNBLOCK_CD"}, data, kNoMac, 2, macReason);
    }
    refused({"TAG_CD"}, R"({"cdMac":""})", "tagStatus is not present!\n", 2, {"u 0 Invalid Argument tagStatus"});
    for (const char* data : {"", R"({"fetchFor":"x"})"}) {
        refused({"FETCH_CD", "ACTIVATE_CIRCLE", "DEACTIVATE_CIRCLE"}, data, "Status is not present!\n", 2,
                {"u 0 Invalid Argument Status"});
    }

    refused({"TAG_CD", "BLOCK_CD", "UNBLOCK_CD", "REMOVE_CD", "CUSTOMIZE_CD"}, data_with("cdMac", 20),
            "Overflow of cdMAC buffer\n", 4, {});
    refused({"CUSTOMIZE_CD"}, data_with("cdName", 128, R"("cdMac":"",)"), "Overflow of cdName buffer\n", 4, {});
    for (const char* name : {"cdType", "cdBrand", "cdModel"}) {
        refused({"CUSTOMIZE_CD"}, data_with(name, 32, R"("cdMac":"",)"), "Overflow of cdType buffer\n", 4, {});
    }
    std::string given;
    for (const std::string name : {"timeZone", "startTime", "endTime"}) {
        refused({kSchedule}, "{" + given + "\"x\":0}", name + " is not present!\n", 2,
                {"u 0 Invalid Argument " + name});
        refused({kSchedule}, data_with(name, 20, given), "Overflow of " + name + " buffer\n", 4, {});
        given += "\"" + name + "\":\"\",";
    }
}

TEST_F(Command, ChecksTheEnvelopeItself) {
    expect("no JSON", -1, "Buffer is no JSON\n", 1, {});
    for (const char* member : {"", R"("UUID":5,)", R"("uuid":"u",)"}) {
        expect(std::string("{") + member + R"("cmd":"BLOCK_CD"})", -1, "UUID is not present!\n", 2, {});
    }
    expect(envelope(text_of(128), "X"), -1, "Overflow of UUID buffer\n", 4, {});
    for (const char* message : {R"({"UUID":"u"})", R"({"UUID":"u","cmd":7})"}) {
        expect(message, -1, "CMD is not present!\n", 2, {"u 0 Invalid Argument CMD"});
    }
    expect(envelope("u", text_of(128)), -1, "Overflow of cmd buffer\n", 4, {});
    for (const std::string& command : {text_of(127), std::string("block_cd"), std::string("BLOCK_CD ")}) {
        expect(envelope("u", command), 0, "Invalid Command for Operation\n", 1, {"u 0 Invalid Command"});
    }
    expect(envelope(text_of(127), "X"), 0, "data object is not present!\n", 2, {text_of(127) + " 0 Invalid Command"});
}

TEST_F(Command, ReportsAFailingStore) {
    const std::string mac = R"("cdMac":"02:00:00:00:00:01")";
    const auto failing = [&](const Texts& commands, const Texts& fields, const std::string& acknowledgement) {
        for (const std::string& command : commands) {
            for (const std::string& field : fields) {
                SCOPED_TRACE(field);
                StoreSpy spy;
                spy.fail(field, HAB_TIMEOUT);
                expect(envelope("u", command, "{" + mac + R"(,"tagStatus":1,"elements":[{)" + mac + "}]}"), 0,
                       std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4, {acknowledgement});
            }
        }
    };
    constexpr const char* kTrigger = "DALHConfig.ProcessID";
    constexpr const char* kFeature = "DALHConfig.FeatureID";
    failing({"BLOCK_CD", "UNBLOCK_CD", "TAG_CD", "BST_ENABLE", "BST_DISABLE"}, {kTrigger}, "u 0 Success");
    failing({"BLOCK_CD", "UNBLOCK_CD", "TAG_CD", "BST_ENABLE"}, {kFeature}, "u 1 Success");
    failing({"DEVICE_CLAIMED"}, {kTrigger}, "u 0 Unable to set claim");
    failing({"CUSTOMIZE_CD"}, {"DALHConfig.DisplayName", "DALHConfig.DisplayModel"},
            "u 0 HAB Transaction not successful");
    failing({"CUSTOMIZE_CD", "REMOVE_CD"}, {"DALHConfig.DeviceMAC", kFeature, kTrigger},
            "u 0 HAB Transaction not successful");
    failing({"BLOCK_CD_BULK", "UNBLOCK_CD_BULK"},
            {"DALHprofileMAC.MACcount", "DALHprofileMAC.ProfileMAC1", kFeature, kTrigger},
            "u 0 failed to set Mac on DALH");
}

TEST_F(Command, WritesItsRequestAndTriggersLast) {
    // `expected`: the writes, to DALHConfig unless another table is named. Only the list itself acknowledges a list
    // command.
    const auto writes = [&](const char* command, const std::string& data, const std::string& expected,
                            const Texts& acks = {"u 1 Success"}) {
        SCOPED_TRACE(command + data);
        cloud.forget();
        const StoreSpy spy;
        EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", command, data).c_str()), 0);
        std::string written;
        for (const std::string& write : spy.writes()) {
            written += (write.starts_with("DALHConfig.") ? write.substr(11) : write) + " ";
        }
        EXPECT_EQ(written, expected);
        EXPECT_EQ(acknowledgements(0), acks);
    };
    const std::string claim = "DroCfg.claimState=true DroStatus.cdilTransUuid=u DroStatus.cdilfetchFor=";
    const std::string list = " DILGeneral.CDILTrigger=true FeatureID=8 CDILRequest=occupied ProcessID=1 ";
    writes("DEVICE_CLAIMED", "", claim + list, {});
    writes("DEVICE_CLAIMED", R"({"fetchFor":"123456789012345"})", claim + "123456789012345" + list, {});
    writes("DEVICE_CLAIMED", R"({"fetchFor":"12345678901234567890"})", claim + "123456789012345" + list, {});
    EXPECT_TRUE(log.in_order({"fetchFor is not present!\n", "getting fetchFor\n", "Overflow of UUID buffer\n"}));

    constexpr const char* kOne = R"({"cdMac":"02:00:00:00:00:01","tagStatus":3})";
    writes("BLOCK_CD", kOne, "FeatureID=7 blockCdMAC=02:00:00:00:00:01 ProcessID=1 ");
    writes("BLOCK_CD", R"({"cdMac":"nonsense"})", "ProcessID=1 ");
    writes("UNBLOCK_CD", kOne, "FeatureID=6 allowCdMAC=02:00:00:00:00:01 ProcessID=1 ");
    writes("REMOVE_CD", kOne, "DeviceMAC=02:00:00:00:00:01 FeatureID=10 ProcessID=1 ");
    writes("BST_ENABLE", "", "FeatureID=5 BSTStateuserDRO=ENABLE ProcessID=1 ");
    writes("BST_DISABLE", "", "FeatureID=5 BSTStateuserDRO=DISABLE ProcessID=1 ");
    writes("TAG_CD", kOne, "TaggedDeviceMAC=02:00:00:00:00:01 FeatureID=2 TagStatus=offline ProcessID=1 ");
    writes("TAG_CD", R"({"cdMac":"","tagStatus":0})", "FeatureID=2 TagStatus=untag ProcessID=1 ");
    writes("TAG_CD", R"({"cdMac":"","tagStatus":1})", "FeatureID=2 TagStatus=both ProcessID=1 ");
    writes("TAG_CD", R"({"cdMac":"","tagStatus":2})", "FeatureID=2 TagStatus=online ProcessID=1 ");
    writes("TAG_CD", R"({"cdMac":"","tagStatus":"2"})", "FeatureID=2 TagStatus=untag ProcessID=1 ");
    EXPECT_TRUE(log.in_order({"offline tag value matched!\n", "untag value matched!\n", "tag for both value matched!\n",
                              "online tag value matched!\n", "untag value matched!\n"}));
    writes("TAG_CD", R"({"cdMac":"","tagStatus":4})", "FeatureID=2 ", {"u 0 Invalid tagState"});
    writes("TAG_CD", R"({"cdMac":"","tagStatus":-1})", "FeatureID=2 ", {"u 0 Invalid tagState"});

    // Members of the maximum length.
    const std::string word = text_of(31);
    const std::string words = R"("cdType":")" + word + R"(","cdBrand":")" + word + R"(","cdModel":")" + word + "\",";
    writes("CUSTOMIZE_CD", data_with("cdMac", 19, R"("cdName":")" + text_of(127) + "\"," + words),
           "DisplayName=" + text_of(127) + " DeviceType=" + word + " DisplayBrand=" + word + " DisplayModel=" + word +
               " FeatureID=9 ProcessID=1 ");
    writes("CUSTOMIZE_CD", "{\"cdMac\":\"-\",\"cdType\":\"caf\xc3\xa9\"}", "DisplayName= DeviceType=caf\xc3\xa9 ",
           {"u 0 HAB Transaction not successful"});
    log.forget();
    writes("CUSTOMIZE_CD", kOne,
           "DeviceMAC=02:00:00:00:00:01 DisplayName= DeviceType= DisplayBrand= DisplayModel= FeatureID=9 ProcessID=1 ");
    for (const std::string name : {"Name", "Type", "Brand", "Model"}) {
        EXPECT_TRUE(log.has("CD " + name + " is not present! Perhaps cd" + name + " is not customized!\n", 4)) << name;
    }

    writes("BLOCK_CD_BULK", R"({"elements":[{"cdMac":"02:00:00:00:00:05"},{"cdMac":5},{"cdMac":"02:00:00:00:00:06"}]})",
           "DALHprofileMAC.MACcount=3 DALHprofileMAC.ProfileMAC1=02:00:00:00:00:05 "
           "DALHprofileMAC.ProfileMAC3=02:00:00:00:00:06 FeatureID=11 ProcessID=1 ");
    EXPECT_TRUE(log.has("Bulk Block unblock function success\n", 1));
    writes("UNBLOCK_CD_BULK", R"({"elements":"none"})", "DALHprofileMAC.MACcount=0 FeatureID=12 ProcessID=1 ");
    const std::string nineteen = R"({"elements":[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,)";
    writes("UNBLOCK_CD_BULK", nineteen + R"({"cdMac":"02:00:00:00:00:14"}]})",
           "DALHprofileMAC.MACcount=20 DALHprofileMAC.ProfileMAC20=02:00:00:00:00:14 FeatureID=12 ProcessID=1 ");
    writes("UNBLOCK_CD_BULK", nineteen + "0,0]}", "", {"u 0 Mac Array elements greater than 20"});

    const std::string time = text_of(19);
    writes(kSchedule, data_with("endTime", 19, R"("timeZone":")" + time + R"(","startTime":")" + time + "\","), "");
    EXPECT_TRUE(log.has("Got info for DTNSchedule time change\nData: UUID = u, cmd = UPDATE_DTN_SCHEDULE, timeZone = " +
                            time + ", startTime = " + time + ", endTime = " + time + "\n",
                        1));
    writes("PROVISION_CIRCLE", "{}", "", {"u 0 Invalid Argument circleId"});
    writes("TOGGLE_CIRCLE_STATE", R"({"toggle":"on"})", "", {"u 0 Invalid request"});

    // Arguments that no envelope leads to.
    log.forget();
    const StoreSpy spy;
    EXPECT_EQ(dro::setBSTSchedule("u", "BST_OTHER"), 0);
    EXPECT_EQ(dro::customizeCD("u", "", nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(spy.writes(), (Texts{"DALHConfig.FeatureID=5", "DALHConfig.ProcessID=1", "DALHConfig.FeatureID=9",
                                   "DALHConfig.ProcessID=1"}));
    EXPECT_TRUE(log.in_order({"Custom CD NAme received is NULL\n", "Custom CD Type received is NULL\n",
                              "Custom CD Brand received is NULL\n", "Custom CD Model received is NULL\n"}));

    EXPECT_EQ(dro::parseUUIDBaseBuffer(envelope("u", "FETCH_CD", R"({"status":0})").c_str()), 0);
    EXPECT_EQ(spy.writes().at(4), "RADebugLog.dbgArg1=FETCH_CD command recieved from cloud");
}

TEST_F(Command, AcknowledgesByteForByteAndRetriesOnlyWithoutAnAnswer) {
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
    EXPECT_TRUE(spy.writes().empty()) << "no acknowledgement reported the Circle state";
    cloud.forget();
    cloud.answer_all(text_answer("", 503));
    EXPECT_EQ(dro::sendTransactionACK("t-3", 1, "Success"), 1);
    expect_three_attempts(true);
    EXPECT_EQ(log.count("No response from DRO Cloud\n"), 3U);
}

}  // namespace
}  // namespace dro_test

// External inputs: the router's identity, the store's notices, and the connector's callbacks.
#include <thread>

#include "dro_dal.h"
#include "dro_get_dalfld.h"
#include "dro_main.h"
#include "dro_parse_cnf.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

using Entry = AgentTest;

TEST_F(Entry, IdentityIsCompleteOnlyWithEveryPart) {
    EXPECT_TRUE(
        log.has("serialNo : FSN0123456789, modelNumber : RX-1, MacAddr : 02:00:00:00:00:0A, fwVersion :7.8.9\n", 1));
    EXPECT_TRUE(log.in_order({"Getting the jorvId size", "Error logs after jorvid", "JorvID jorv-1\n",
                              "claimed claim-1\n", "FSN FSN0123456789\n", "DeviceModel RX-1\n",
                              "DeviceName Home router\n", "FwRevision 7.8.9\n", "DefaultMAC 02:00:00:00:00:0A\n\n"}));
    const Cases<const char*, const char*, int> cases{{"General.FSN", "", 1},
                                                     {"JorvagentCfg.jorv_agent_id", "", 1},
                                                     {"General.DeviceName", "", 1},
                                                     {"General.DeviceModel", "", 1},
                                                     {"General.FwRevision", "", 1},
                                                     {"General.DefaultMAC", "00:00:00:00:00:00", 1},
                                                     {"Drocfg.DroBaseURL", "", 0},
                                                     {"JorvagentCfg.jorv_agent_claim_code", "", 0},
                                                     {"General.FSN", "012345678901234", 0}};
    for (const auto& [field, value, result] : cases) {
        const std::string before = store.get(field);
        store.set(field, value);
        EXPECT_EQ(dro::get_hab_info(), result) << field;
        store.set(field, before);
    }
    store.set("General.FSN", "ABC");
    dro::get_hab_info();
    EXPECT_EQ(dro::tv().FSN.view(), "ABC");
}

TEST_F(Entry, StatusTextsAreTheAgentsOwn) {
    std::string texts;
    for (int status = 0; status <= 10; ++status) {
        texts += std::string(dro::error_message(status)) + "|";
    }
    EXPECT_EQ(texts,
              "No Error|Connection Timeout|HAB_SHUTDOWN ERROR|HAB_NOSUCH_ITEM ERROR|HAB_TOO_LONG ERROR|"
              "Not a Valid Input|HAB_WRONG_TYPE ERROR|HAB_ENCODING ERROR|HAB_ERROR|HAB Unknown Error|Unknown|");
    dro::print_err(0);
    dro::showHABErr(7, "T", "F", 0);
    EXPECT_FALSE(log.has("Error: No Error\n"));
    dro::print_err(42);
    EXPECT_TRUE(log.has("Error: Unknown\n", 1));
    dro::showHABErr(7, "T", "F", 3);
    EXPECT_TRUE(
        log.has(std::string("Error : ") + hab_error_string(3) + " || line : 7 || field : F' || table : T \n", 4));
}

TEST_F(Entry, NoticesReachTheHandlerOfTheirField) {
    static std::atomic<int> calls;
    int context = 5;
    const auto count = [](void* five) { calls += *static_cast<int*>(five); };
    EXPECT_EQ(dro::dal_call_on_change("RADebugLog", "dbgArg1", count, &context), 0);
    store.set("RADebugLog.dbgArg2", "nobody's");
    store.set("RADebugLog.dbgArg1", "ours");
    EXPECT_TRUE(eventually([] { return calls == 5; }));
    // Only the first 63 characters are compared.
    const std::string longName(70, 'T');
    EXPECT_EQ(dro::dal_call_on_change(longName.c_str(), "a", count, nullptr), 0);
    EXPECT_EQ(dro::dal_call_on_change(longName.c_str(), "b", count, nullptr), 1);
}

TEST_F(Entry, ConnectorStateRegistersOrRequestsAConnection) {
    const Texts forced{"JorvagentCfg.jorv_force_connection=1"};
    const Cases<int, int, int, std::size_t, Texts> cases{
        {1, 0, 0, 1, {}}, {0, 0, 1, 1, {}}, {0, 1, 0, 0, forced}, {0, 0, 0, 0, {}}, {1, 1, 1, 1, {}}};
    for (const auto& [registered, claimed, connected, registrations, writes] : cases) {
        cloud.forget();
        cloud.script("addJorvDeviceId/",
                     {text_answer(R"({"status":1,"reset":false,"claimState":true,"syncTime":null})")});
        store.set("DROStatus.addJorvdeviceIdDone", "false");
        const StoreSpy spy;
        dro::JorvAgentStatus_cbHandler(registered, claimed, connected);
        EXPECT_EQ(cloud.requests("addJorvDeviceId/").size(), registrations);
        EXPECT_EQ(spy.writes("JorvagentCfg."), writes);
    }
    EXPECT_TRUE(log.in_order(
        {"Callback successfull, jorv_agent_registered is: 0, jorv_agent_claimed is 1,  jorv_agent_connected is: 0\n",
         "Not a valid event received not honor this!...\n", "jorvagent force connection is 0\n",
         "jorvagent force connection is set \n", "Returning from JorvAgentStatus_cbHandler\n",
         "jorvagent force connection is 1\n", "Returning from JorvAgentStatus_cbHandler\n"}));
}

TEST_F(Entry, OnlyATextUuidMakesACommand) {
    const Cases<std::string, int, std::size_t> cases{
        {"no JSON", 0, 0},         {R"({"UUID":5,"cmd":"X"})", 0, 0},     {R"([1])", 0, 0},
        {envelope("", "X"), 0, 1}, {R"({"UUID":"u","UUID":"v"})", -1, 1}, {std::string(1001, '['), 0, 0}};
    for (const auto& [message, result, acknowledged] : cases) {
        forget();
        EXPECT_EQ(dro::parseConfigBuff(message.c_str()), result) << message;
        EXPECT_EQ(cloud.requests().size(), acknowledged) << message;
        EXPECT_EQ(log.has("[DROAGENT] : UUID is present!\n", 2), acknowledged > 0);
        EXPECT_TRUE(log.has("[DROAGENT] : FUNC : parseConfigBuff - Received Data: " + message + "\n", 1));
    }
    dro::JorvAgentNotification_cbHandler(nullptr);
    dro::cb_test("event");
    EXPECT_TRUE(log.in_order({"Inside JorvAgentNotification_cbHandler\n", "No Message Received\n",
                              "Returning from JorvAgentNotification_cbHandler\n", "Inside cb_test\n"}));
}

TEST_F(Entry, MessagesAreProcessedOneAfterTheOther) {
    const char* const locked = "=====LOCKed Process..=====\n";
    cloud.script("transactionAck/", {kStall});
    const auto deliver = [](const char* uuid) {
        dro::JorvAgentNotification_cbHandler(envelope(uuid, "BLOCK_CD", R"({"cdMac":""})").c_str());
    };
    std::thread first(deliver, "1");
    EXPECT_EQ(cloud.wait_for(1).size(), 1U);
    std::thread second(deliver, "2");
    EXPECT_TRUE(log.wait_for("Inside JorvAgentNotification_cbHandler\n", 2));
    cloud.release();
    first.join();
    second.join();
    EXPECT_EQ(acknowledgements(2), (Texts{"1 1 Success", "2 1 Success"}));
    EXPECT_TRUE(log.in_order({locked, "Parse UUID is done, trans uuid is 1\n", "TRANS-ACK API call Successfull\n\n",
                              locked, "Parse UUID is done, trans uuid is 2\n", "TRANS-ACK API call Successfull\n\n"}));
    EXPECT_EQ(log.count("=====UnLOCK Done..=====\n"), 2U);
    const FailCalls fault(Call::mutexLock, EINVAL, dro::mutex_all.native());
    deliver("3");
    EXPECT_TRUE(log.has("Agent : Mutex Lock fail. ERROR = 22", 4));
    EXPECT_EQ(cloud.requests().size(), 2U);
}

}  // namespace
}  // namespace dro_test

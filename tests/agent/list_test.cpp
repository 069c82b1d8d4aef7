// A device's record - always eighteen members, in fixed order and with the cloud's keys - and the device list:
// requested, built from the index masks, and sent as an answer or unrequested.
#include "dro_cdil.h"
#include "dro_fifo.h"
#include "dro_get_set_config_list.h"
#include "dro_get_set_config_push.h"
#include "dro_json.h"
#include "dro_utils_record.h"
#include "pipeline.h"

namespace dro_test {
namespace {

// ---- The record ----

using Record = AgentTest;

std::string built(int index, int mode) {
    const dro::Json object(cJSON_CreateObject());
    dro::getConnectedDeviceData(index, object.get(), mode);
    const dro::JsonText text(cJSON_PrintUnformatted(object.get()));
    return text.get();
}

TEST_F(Record, MapsStateNamesToOneDigit) {
    const Cases<std::string, char> cases{{"DOWN", '0'},  {"allow", '0'}, {"untag", '0'},  {"UP", '1'},
                                         {"block", '1'}, {"both", '1'},  {"online", '2'}, {"offline", '3'},
                                         {"up", '?'},    {"UPPER", '?'}, {"tag", '?'},    {"", '?'}};
    for (const auto& [word, digit] : cases) {
        log.forget();
        std::uint16_t code = '?';
        dro::getIntForStateString(word.c_str(), code);
        EXPECT_EQ(code, digit) << word;
        EXPECT_EQ(log.has("[DROAGENT] - Invalid state value " + word + "\n", 4), digit == '?') << word;
    }
    store.set("Dilsignature.IsTagged@3", "tag");
    EXPECT_EQ(json_value(built(3, dro::kRecordNewDevice), "cdTaggedStatus"), "");
}

TEST_F(Record, IsCompleteWithoutARowAndWithAFailingStore) {
    EXPECT_EQ(built(257, dro::kRecordNewDevice),
              R"({"mac":"00:00:00:00:00:00","cdIP":"0.0.0.0","connApMac":"00:00:00:00:00:00","cdName":"","cdModel":"",)"
              R"("cdType":"","cdBrand":"","cdNetworkInfo":"Home router","cddisplayType":"","cdConnectionInterface":"",)"
              R"("connSsid":"","downloadBw":"","uploadBw":"","deviceSignalStrength":"","deviceLinkRate":"",)"
              R"("cdStatus":"","cdTaggedStatus":"","cdBlockedStatus":""})");
    // The texts end with a source line number, which is not compared.
    EXPECT_EQ(log.count_starting(std::string("Error : ") + hab_error_string(HAB_NOSUCH_ITEM) + " || line : ", 4), 17U);
    add_device(store, 4);
    store.set("DroStatus.cdilTransUuid", "t-1");  // changes the keys of lists only
    EXPECT_EQ(built(4, dro::kRecordNewDevice), device_record(4));
    EXPECT_EQ(built(4, dro::kRecordUpdate), device_record(4));
    // An unreadable address shows the previous bytes.
    StoreSpy spy;
    spy.fail("Dilsignature.DeviceIP", HAB_TIMEOUT);
    spy.fail("ConnectDeviceinfo.ConnAPMac", HAB_TIMEOUT);
    const std::string record = built(4, dro::kRecordNewDevice);
    EXPECT_EQ(json_value(record, "cdIP"), "10.0.0.0");
    EXPECT_EQ(json_value(record, "connApMac"), "0A:00:00:00:00:04");
}

// ---- The list ----

constexpr const char* kStatus = "DALHNotifyCDIL.CDILstatus";
constexpr const char* kLooked = "CDIL Status on DALHNotify is ";

class DeviceList : public AgentTest {
 protected:
    // Subscribes to the device service's notices without a dispatcher, so events stay queued.
    void start_sync() {
        store.set("DroStatus.cdilSupport", "true");
        dro::init_cdil_dal_sub();
    }

    // One cycle of the device service: rows 0, 31 and 224, with their announced number. Waits until the agent has
    // handled the notice of its own reset. A second cycle before that would be handled twice.
    void complete_cycle(const char* total) {
        store.set_all({{"DALHNotifyCDIL.IndexBitMask0", "2147483649"},
                       {"DALHNotifyCDIL.IndexBitMask7", "1"},
                       {"DALHNotifyCDIL.TotalIndexcount", total},
                       {kStatus, "complete"}});
        ASSERT_TRUE(log.wait_for("Got invalid value for cdil status not initing sync to cloud!\n", ++cycles_));
        EXPECT_EQ(store.get(kStatus), "init");
    }

 private:
    std::size_t cycles_ = 0;
};

// ---- Requests ----

TEST_F(DeviceList, AFetchIsWrittenInOrder) {
    const std::string request = "DALHConfig.CDILRequest=";
    const Cases<unsigned, Texts> cases{
        {0, {request + "occupied"}}, {1, {request + "online"}}, {2, {request + "offline"}}, {7, {}}};
    for (const auto& [status, asked] : cases) {
        const StoreSpy spy;
        EXPECT_EQ(dro::init_fetch_cd("t-1", status, "app"), 0);
        Texts expected{"DroStatus.cdilTimeout=true", "DroStatus.cdilTransUuid=t-1", "DroStatus.cdilfetchFor=app",
                       "DILGeneral.CDILTrigger=true", "DALHConfig.FeatureID=8"};
        expected.insert(expected.end(), asked.begin(), asked.end());
        expected.insert(expected.end(),
                        {"RADebugLog.dbgArg1=Update DALH for CDIL processing", "DALHConfig.ProcessID=1"});
        EXPECT_EQ(spy.writes(), expected);
    }
    EXPECT_TRUE(log.in_order({"Setting CDIL timeout on DroStatus !\n", "Setting CDIL transUUID on DroStatus\n",
                              "Setting CDIL fetchFor on drostatus\n"}));
    EXPECT_TRUE(cloud.requests().empty()) << "only the list answers the command";
    StoreSpy spy;
    spy.fail("DroStatus.cdilfetchFor", HAB_TIMEOUT);
    dro::init_fetch_cd("t-1", 0, "app");
    EXPECT_EQ(spy.writes().size(), 8U) << "the other writes follow a failed one";
    EXPECT_TRUE(log.has(std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4));
}

// ---- Pushes ----

TEST_F(DeviceList, AnswersThePendingTransactionAndIsTruncatedAtHalfAMebibyte) {
    const auto expect = [&](const char* uuid, const char* path, const char* rest, const char* logged,
                            const char* syncAtAfter) {
        forget();
        store.set_all({{"DroStatus.cdilTransUuid", uuid}, {"DroStatus.cdilsyncAt", "PERIODIC"}});
        EXPECT_EQ(dro::pushToCloud_cdil(R"([{"a":1}])"), 0);
        const Request request = only_request();
        EXPECT_EQ(request.path, path);
        EXPECT_EQ(after_signature(request.body), rest);
        EXPECT_TRUE(log.has("CMD is  : " + request.body + "\n"));
        EXPECT_TRUE(log.has(logged, 1)) << uuid;
        EXPECT_EQ(store.get("DroStatus.cdilTransUuid"), uuid) << "not cleared";
        EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), syncAtAfter) << uuid;
    };
    constexpr const char* kUnsolicited = R"(,"type":"CDIL","syncAt":"PERIODIC" ,"cdl":[{"a":1}]})";
    store.set("DroStatus.cdilfetchFor", "app");
    expect("t-1", "/transactionAck/",
           R"(,"transactionId":"t-1","transactionStatus":"1","failureReason":"Success","fetchFor":"app", )"
           R"("relayData":{"cdl":[{"a":1}]}})",
           "SYNC_CD_ API call Successfull\n\n", "PERIODIC");
    expect("", "/syncCD/", kUnsolicited, "G-API call Successfull\n\n", "");
    expect("Noop", "/syncCD/", kUnsolicited, "\nTrans ACK API Status Success response\n", "");
    cloud.forget();
    EXPECT_EQ(dro::pushToCloud_cdil(("[" + std::string(600'000, 'x') + "]").c_str()), 0);
    const std::string body = only_request().body;
    EXPECT_EQ(body.size(), 524'287U);
    EXPECT_TRUE(body.ends_with("xxx"));
}

TEST_F(DeviceList, IsSentThreeTimesToASilentCloud) {
    durations.retryPause = std::chrono::milliseconds(500);
    dro::set_durations(durations);
    store.set_all({{"DroStatus.cdilTransUuid", "t-1"}, {"DroStatus.cdilsyncAt", "PERIODIC"}});
    cloud.answer_all(kRefused);
    EXPECT_EQ(dro::pushToCloud_cdil("[]"), 0);
    EXPECT_EQ(cloud.requests().size(), 1U) << "an answering cloud receives it once";
    cloud.forget();
    cloud.answer_all(text_answer("", 503));
    const StoreSpy spy;
    EXPECT_EQ(dro::pushToCloud_cdil("[]"), 1);
    expect_three_attempts(false);
    EXPECT_EQ(log.count("No response from DRO Cloud:HTTP status code = 503\n", 4), 3U);
    const std::string failed = "RADebugLog.dbgArg1=CDIL curl hit fail";
    EXPECT_EQ(spy.writes(),
              (Texts{"RADebugLog.dbgArg1=CDIL response initiate curl request to cloud", failed, failed, failed}));
    cloud.forget();
    store.set("DroStatus.cdilTransUuid", "Noop");
    EXPECT_EQ(dro::pushToCloud_cdil("[]"), 0);
    expect_three_attempts(true);
    EXPECT_EQ(log.count("No response from DRO Cloud\n", 4), 3U);
    EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), "");
}

// ---- Building ----

TEST_F(DeviceList, IsQueuedWithItsProgressMarks) {
    start_sync();
    EXPECT_TRUE(log.has("On Subscription, state of CDIL is init\n"));
    store.set("DroStatus.cdilTransUuid", "noop");  // a transaction like any other
    add_device(store, 0);
    const StoreSpy spy;
    complete_cycle("1");
    EXPECT_EQ(take_payload(), "[" + device_record(0, true) + "]");
    EXPECT_EQ(spy.writes(),
              (Texts{"RADebugLog.dbgArg1=CDIL notification after dalh processing",
                     "RADebugLog.dbgArg1=CDIL payload creation start", "RADebugLog.dbgArg1=CDIL payload creation done",
                     "RADebugLog.dbgArg1=CDIL payload enqueue successfull", "DALHNotifyCDIL.CDILstatus=init"}));
    EXPECT_TRUE(log.in_order({"Starting CDIl Thread!\n", "CDIL Status on DALHNotify is complete\n",
                              "Starting getting Index BIT mask from DALH \n", "count:3\n ",
                              "Got new connected devices to sync\nNo of new devices are:1\n ",
                              "CDIL Published Successfully, exiting thread!\n", "CDIL Sync to cloud successfull!!\n"}));
}

TEST_F(DeviceList, HasTheSmallerNumberOfCountedAndMarkedDevices) {
    start_sync();
    store.set("DroStatus.cdilTransUuid", "Noop");
    for (const int row : {0, 31, 224}) {
        add_device(store, row);
    }
    const auto expect_queued = [&](const char* total, const std::string& payload) {
        complete_cycle(total);
        EXPECT_EQ(take_payload(), payload) << total;
        EXPECT_TRUE(dro::isQueueEmpty()) << total;
        EXPECT_TRUE(cloud.requests().empty()) << total;
    };
    const std::string three = "[" + device_record(0) + "," + device_record(31) + "," + device_record(224) + "]";
    expect_queued("3", three);
    expect_queued("2", "[" + device_record(0) + "," + device_record(31) + "]");
    expect_queued("300", three);
    expect_queued("-1", "[]");
    complete_cycle("0");
    EXPECT_TRUE(dro::isQueueEmpty());
    EXPECT_EQ(json_value(cloud.requests("syncCD/").at(0).body, "cdl"), "[]") << "sent directly";
    EXPECT_TRUE(log.has("No Indexes for the CDIL Sync will send the Json as empty\n"));
}

TEST_F(DeviceList, IsTruncatedBeforeItIsQueued) {
    add_wordy_device(store, 1);
    dro::IndexList list{};
    std::size_t count = 0;
    for (int number = 0; number < 9; ++number) {
        dro::search_for_index(~0U, number, count, list);
    }
    EXPECT_EQ(count, 256U) << "no more rows than the list holds";
    list.fill(1);
    EXPECT_EQ(dro::syncCdil_timerExit(256, list), 0);
    EXPECT_EQ(take_payload().size(), 262'144U);
    fill_queue();
    EXPECT_EQ(dro::syncCdil_timerExit(1, list), 0) << "only this list is lost";
    EXPECT_TRUE(log.has("CDIL Publishing Failed! Exiting thread!\n", 4));
}

TEST_F(DeviceList, StartsOnlyOnTheExactStatusAndWithTheStoresSupport) {
    for (const char* status : {"complete ", "completed", "Complete", ""}) {
        store.set(kStatus, status);
        dro::t_Handler_cdilSync();
        EXPECT_EQ(store.get(kStatus), "init") << status;
    }
    EXPECT_FALSE(log.has("Starting getting Index BIT mask from DALH \n"));
    dro::cdilStatus_cbHandler(nullptr);
    EXPECT_TRUE(log.has("CDIL is Not support of the device! Will sync CDIL if the support is enabled!\n", 2));
    EXPECT_EQ(log.count_starting(kLooked), 4U);
}

}  // namespace
}  // namespace dro_test

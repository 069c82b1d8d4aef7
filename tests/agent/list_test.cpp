// The connected-device list: asked for, built from the index masks, and pushed as an answer or on its own.
#include "dro_cdil.h"
#include "dro_get_set_config.h"
#include "pipeline.h"

namespace dro_test {
namespace {

using Writes = std::vector<std::string>;

class DeviceList : public PipelineTest {
 protected:
    // Subscribes to the device service's notices, without a dispatcher: what is queued stays there.
    void start_sync() {
        store.set("DroStatus.cdilSupport", "true");
        dro::InitQueue();
        dro::init_cdil_dal_sub();
    }

    // One cycle of the device service: rows 0, 31 and 224, and what it says their number is. Over when the agent has
    // also seen its own reset: a cycle handed over before that would be taken for two.
    void complete_cycle(const std::string& total) {
        store.set_all({{"DALHNotifyCDIL.IndexBitMask0", "2147483649"},
                       {"DALHNotifyCDIL.IndexBitMask7", "1"},
                       {"DALHNotifyCDIL.TotalIndexcount", total}});
        store.set("DALHNotifyCDIL.CDILstatus", "complete");
        ASSERT_TRUE(log.wait_for("Got invalid value for cdil status not initing sync to cloud!\n", ++cycles_));
    }

 private:
    std::size_t cycles_ = 0;
};

// ---- Asking ----

TEST_F(DeviceList, AFetchIsWrittenInItsOrder) {
    struct Case {
        unsigned status;
        const char* request;  // null: left as it was
    };
    for (const Case& c : {Case{0, "occupied"}, {1, "online"}, {2, "offline"}, {7, nullptr}}) {
        const StoreSpy spy;
        EXPECT_EQ(dro::init_fetch_cd("t-1", c.status, "app"), 0);
        Writes expected{"DroStatus.cdilTimeout=true", "DroStatus.cdilTransUuid=t-1", "DroStatus.cdilfetchFor=app",
                        "DILGeneral.CDILTrigger=true", "DALHConfig.FeatureID=8"};
        if (c.request != nullptr) {
            expected.push_back(std::string("DALHConfig.CDILRequest=") + c.request);
        }
        expected.insert(expected.end(),
                        {"RADebugLog.dbgArg1=Update DALH for CDIL processing", "DALHConfig.ProcessID=1"});
        EXPECT_EQ(spy.writes(), expected);
    }
    EXPECT_TRUE(log.in_order({"Setting CDIL timeout on DroStatus !\n", "Setting CDIL transUUID on DroStatus\n",
                              "Setting CDIL fetchFor on drostatus\n"}));
    EXPECT_TRUE(cloud.requests().empty()) << "the list is the answer";
}

TEST_F(DeviceList, AFailedWriteOfAFetchIsLoggedAndTheRestGoesOn) {
    StoreSpy spy;
    spy.fail("DroStatus.cdilfetchFor", HAB_TIMEOUT);
    dro::init_fetch_cd("t-1", 0, "app");
    EXPECT_EQ(spy.writes().back(), "DALHConfig.ProcessID=1");
    EXPECT_TRUE(log.has(std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4));
}

// ---- Pushing ----

TEST_F(DeviceList, GoesToTheTransactionThatWaitsForIt) {
    struct Case {
        const char* uuid;
        const char* path;
        const char* rest;
        const char* logged;
    };
    store.set("DroStatus.cdilfetchFor", "app");
    for (const Case& c :
         {Case{"t-1", "/transactionAck/",
               R"(,"transactionId":"t-1","transactionStatus":"1","failureReason":"Success","fetchFor":"app", )"
               R"("relayData":{"cdl":[{"a":1}]}})",
               "SYNC_CD_ API call Successfull\n\n"},
          {"", "/syncCD/", R"(,"type":"CDIL","syncAt":"PERIODIC" ,"cdl":[{"a":1}]})", "G-API call Successfull\n\n"},
          {"Noop", "/syncCD/", R"(,"type":"CDIL","syncAt":"PERIODIC" ,"cdl":[{"a":1}]})",
           "\nTrans ACK API Status Success response\n"}}) {
        cloud.forget();
        log.forget();
        store.set_all({{"DroStatus.cdilTransUuid", c.uuid}, {"DroStatus.cdilsyncAt", "PERIODIC"}});
        EXPECT_EQ(dro::pushToCloud_cdil(R"([{"a":1}])"), 0);
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].path, c.path);
        EXPECT_EQ(after_signature(requests[0].body), c.rest);
        EXPECT_TRUE(log.has("CMD is  : " + requests[0].body + "\n"));
        EXPECT_TRUE(log.has(c.logged, 1)) << c.uuid;
        EXPECT_EQ(store.get("DroStatus.cdilTransUuid"), c.uuid) << "not cleared";
        EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), *c.path == '/' && c.path[1] == 's' ? "" : "PERIODIC");
    }
}

TEST_F(DeviceList, ARefusedListIsNotSentAgain) {
    struct Case {
        const char* answer;
        int judged;
        const char* logged;
        int level;
    };
    store.set("DroStatus.cdilTransUuid", "t-1");
    for (const Case& c : {Case{R"({"status":0})", -1, "\n SYNC_CD API Status Failure response\n", 4},
                          {R"({"status":1})", 0, "\nSYNC_CD API Status Success response\n", 1},
                          {R"({"status":5})", -1, "No Status code received...\n", 4},
                          {"{}", 1, " Parse input string for key status not found\n", 4},
                          {"x", 1, "SYNC_CD API called: x\n", 1}}) {
        cloud.forget();
        log.forget();
        cloud.answer_all(text_answer(c.answer));
        EXPECT_EQ(dro::pushToCloud_cdil("[]"), 0) << c.answer;
        EXPECT_EQ(cloud.requests().size(), 1U) << c.answer;
        EXPECT_TRUE(log.has(c.logged, c.level)) << c.answer;
        EXPECT_EQ(dro::processSyncCDResponse(c.answer), c.judged) << c.answer;
    }
}

TEST_F(DeviceList, ASilentCloudIsTriedThreeTimes) {
    dro::Durations durations = short_durations();
    durations.retryPause = std::chrono::milliseconds(300);
    dro::set_durations(durations);
    cloud.answer_all(empty_answer(503));
    struct Case {
        const char* uuid;
        int result;
        bool pauseAfterLast;
        const char* logged;
        Writes marks;
    };
    const std::string failed = "RADebugLog.dbgArg1=CDIL curl hit fail";
    for (const Case& c :
         {Case{"t-1",
               1,
               false,
               "No response from DRO Cloud:HTTP status code = 503\n",
               {"RADebugLog.dbgArg1=CDIL response initiate curl request to cloud", failed, failed, failed}},
          {"Noop", 0, true, "No response from DRO Cloud\n", {}}}) {
        cloud.forget();
        const StoreSpy spy;
        store.set_all({{"DroStatus.cdilTransUuid", c.uuid}, {"DroStatus.cdilsyncAt", "PERIODIC"}});
        EXPECT_EQ(dro::pushToCloud_cdil("[]"), c.result);
        const auto end = std::chrono::steady_clock::now();
        const auto requests = cloud.requests();
        ASSERT_EQ(requests.size(), 3U);
        EXPECT_GE(requests[1].at - requests[0].at, durations.retryPause);
        EXPECT_GE(requests[2].at - requests[1].at, durations.retryPause);
        EXPECT_EQ(end - requests[2].at >= durations.retryPause, c.pauseAfterLast) << c.uuid;
        EXPECT_EQ(log.count(c.logged, 4), 3U);
        EXPECT_EQ(spy.writes("RADebugLog."), c.marks);
        EXPECT_EQ(store.get("DroStatus.cdilsyncAt"), c.pauseAfterLast ? "" : "PERIODIC");
    }
}

TEST_F(DeviceList, ABodyIsCutAtHalfAMebibyte) {
    const std::string payload = "[" + std::string(600'000, 'x') + "]";
    EXPECT_EQ(dro::pushToCloud_cdil(payload.c_str()), 0);
    const auto requests = cloud.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].body.size(), 524'287U);
    EXPECT_TRUE(requests[0].body.ends_with("xxx"));
}

// ---- Building ----

TEST_F(DeviceList, MasksNameRowsLowestBitFirst) {
    struct Case {
        std::vector<std::uint32_t> masks;
        std::vector<std::uint32_t> rows;
    };
    for (const Case& c : {Case{{0x80000001U, 0, 0, 0, 0, 0, 0, 1}, {0, 31, 224}},
                          {{0, 6}, {33, 34}},
                          {{0, 0}, {}},
                          {{0, 0, 0, 0, 0, 0, 0, 0x80000000U}, {255}}}) {
        dro::IndexList list{};
        std::size_t count = 0;
        for (std::size_t number = 0; number < c.masks.size(); ++number) {
            dro::search_for_index(c.masks[number], static_cast<int>(number), count, list);
        }
        EXPECT_EQ(std::vector<std::uint32_t>(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(count)), c.rows);
    }
    dro::IndexList list{};
    std::size_t count = 250;
    dro::search_for_index(~0U, 0, count, list);
    EXPECT_EQ(count, 256U) << "never beyond the list";
}

TEST_F(DeviceList, ACycleIsQueuedWithItsTrail) {
    start_sync();
    EXPECT_TRUE(log.has("On Subscription, state of CDIL is init\n"));
    for (const int row : {0, 31, 224}) {
        add_device(store, row);
    }
    store.set("DroStatus.cdilTransUuid", "t-1");
    const StoreSpy spy;
    complete_cycle("3");
    EXPECT_EQ(take_payload(),
              "[" + device_record(0, true) + "," + device_record(31, true) + "," + device_record(224, true) + "]");
    EXPECT_EQ(spy.writes(),
              (Writes{"RADebugLog.dbgArg1=CDIL notification after dalh processing",
                      "RADebugLog.dbgArg1=CDIL payload creation start", "RADebugLog.dbgArg1=CDIL payload creation done",
                      "RADebugLog.dbgArg1=CDIL payload enqueue successfull", "DALHNotifyCDIL.CDILstatus=init"}));
    EXPECT_TRUE(log.in_order({"Starting CDIl Thread!\n", "CDIL Status on DALHNotify is complete\n",
                              "Starting getting Index BIT mask from DALH \n", "count:3\n ",
                              "Got new connected devices to sync\nNo of new devices are:3\n ",
                              "CDIL Published Successfully, exiting thread!\n", "CDIL Sync to cloud successfull!!\n"}));
}

TEST_F(DeviceList, SendsAsManyDevicesAsAreNamedAndDecoded) {
    start_sync();
    for (const int row : {0, 31, 224}) {
        add_device(store, row);
    }
    const std::string three = "[" + device_record(0) + "," + device_record(31) + "," + device_record(224) + "]";
    struct Case {
        const char* total;
        std::string payload;
        bool queued;
    };
    for (const Case& c : {Case{"3", three, true},
                          {"2", "[" + device_record(0) + "," + device_record(31) + "]", true},
                          {"300", three, true},
                          {"-1", "[]", true},
                          {"0", "[]", false}}) {
        cloud.forget();
        complete_cycle(c.total);
        if (c.queued) {
            EXPECT_EQ(take_payload(), c.payload) << c.total;
            EXPECT_TRUE(cloud.requests().empty()) << c.total;
        } else {
            ASSERT_EQ(cloud.requests("syncCD/").size(), 1U) << "straight to the cloud";
            EXPECT_EQ(json_value(cloud.requests()[0].body, "cdl"), "[]");
            EXPECT_TRUE(log.has("No Indexes for the CDIL Sync will send the Json as empty\n"));
        }
        EXPECT_TRUE(dro::isQueueEmpty()) << c.total;
    }
}

TEST_F(DeviceList, ALongListIsCutBeforeItIsQueued) {
    std::vector<std::pair<std::string, std::string>> names;
    for (int row = 0; row < 256; ++row) {
        for (const char* field :
             {"DeviceIdList.DeviceDisplayName", "DeviceIdList.DisplayType", "ConnectDeviceinfo.ConnSSID",
              "ConnectDeviceinfo.DownloadBW", "ConnectDeviceinfo.UploadBW"}) {
            names.emplace_back(std::string(field) + "@" + std::to_string(row), std::string(127, 'x'));
        }
    }
    store.set_all(names);
    dro::InitQueue();
    dro::IndexList list{};
    for (std::uint32_t row = 0; row < 256; ++row) {
        list[row] = row;
    }
    EXPECT_EQ(dro::syncCdil_timerExit(256, list), 0);
    EXPECT_EQ(take_payload().size(), 262'144U);
    dro::IndexList one{};
    fill_queue();
    EXPECT_EQ(dro::syncCdil_timerExit(1, one), 0) << "a full queue loses the cycle and no more";
    EXPECT_TRUE(log.has("CDIL Publishing Failed! Exiting thread!\n", 4));
}

TEST_F(DeviceList, StartsOnTheExactWordAndWithTheStoresSupport) {
    start_sync();
    for (const char* status : {"complete ", "completed", "Complete", ""}) {
        store.set("DALHNotifyCDIL.CDILstatus", status);
        ASSERT_TRUE(store.wait_for("DALHNotifyCDIL.CDILstatus", "init")) << status;
    }
    EXPECT_FALSE(log.has("Starting getting Index BIT mask from DALH \n"));
    ASSERT_TRUE(eventually([&] { return log.count_starting("CDIL Status on DALHNotify is ") == 8; }));
    store.set("DroStatus.cdilSupport", "false");
    store.set("DALHNotifyCDIL.CDILstatus", "complete");
    ASSERT_TRUE(log.wait_for("CDIL is Not support of the device! Will sync CDIL if the support is enabled!\n"));
    EXPECT_EQ(log.count_starting("CDIL Status on DALHNotify is "), 8U);
}

TEST_F(DeviceList, TenCyclesAtOnceSettle) {
    start_sync();
    StoreWatch notices({"DALHNotifyCDIL"});
    store.set_all({{"DALHNotifyCDIL.IndexBitMask0", "1"}, {"DALHNotifyCDIL.TotalIndexcount", "1"}});
    for (int i = 0; i < 10; ++i) {
        store.set("DALHNotifyCDIL.CDILstatus", "complete");
    }
    std::size_t written = 0;
    const auto settled = [&] {
        for (const std::string& write : notices.take()) {
            written += write.starts_with("DALHNotifyCDIL.CDILstatus=") ? 1 : 0;
        }
        // Every notice's thread has looked, and those that found a list have put "init" back.
        return log.count_starting("CDIL Status on DALHNotify is ") == written &&
               log.count("CDIL Sync to cloud successfull!!\n") ==
                   log.count("CDIL Status on DALHNotify is complete\n") &&
               store.get("DALHNotifyCDIL.CDILstatus") == "init";
    };
    ASSERT_TRUE(eventually(settled));
    EXPECT_LE(written, 20U) << "ten lists, and at most as many resets";
    const std::size_t looked = log.count_starting("CDIL Status on DALHNotify is ");
    EXPECT_FALSE(eventually([&] { return log.count_starting("CDIL Status on DALHNotify is ") != looked; },
                            std::chrono::milliseconds(200)))
        << "the resets start no chain of threads";
    for (std::size_t i = log.count("CDIL Sync to cloud successfull!!\n"); i > 0; --i) {
        EXPECT_NE(take_payload(), "NO EVENT");
    }
    EXPECT_TRUE(dro::isQueueEmpty());
}

}  // namespace
}  // namespace dro_test

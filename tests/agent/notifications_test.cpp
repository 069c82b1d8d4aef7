// From a notifier's row number to the cloud: new devices, tagged devices, changed records and finished speed tests.
#include "dro_bst.h"
#include "dro_cdil.h"
#include "dro_dtn.h"
#include "dro_ndn.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class Notifications : public PipelineTest {
 protected:
    Notifications() {
        dro::Durations durations = short_durations();
        durations.queuePause = std::chrono::microseconds(0);
        dro::set_durations(durations);
        dro::InitQueue();
    }

    // The pipeline of a claimed router that supports everything.
    void start_all() {
        start_pipeline({{"DroStatus.dispatcherSupport", "true"},
                        {"DroStatus.cdilSupport", "true"},
                        {"DroStatus.BSTSupport", "true"},
                        {"DroCfg.claimState", "true"}});
    }

    std::string tagged_payload(unsigned row) {
        dro::t_Handler_dtnSync(row);
        return take_payload();
    }
};

// ---- New devices ----

TEST_F(Notifications, ANewDeviceReachesTheCloud) {
    start_all();
    add_device(store, 7);
    store.set("DALHNotifyNDN.Index", "7");
    const auto requests = cloud.wait_for(1);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].path, "/syncCD/");
    EXPECT_EQ(after_signature(requests[0].body), R"(,"type":"NDN","cd":)" + device_record(7) + "}");
    EXPECT_TRUE(log.wait_for("Successful to spawn thread for Device on Index 7"));
    EXPECT_TRUE(log.wait_for("NDN Published Successfully, exiting thread!\n"));

    // The mark for "no device" is none to this notifier.
    store.set("DALHNotifyNDN.Index", "257");
    ASSERT_EQ(cloud.wait_for(2).size(), 2U);
    EXPECT_TRUE(log.has("Index in NDN t_Handler is 257\n"));
    EXPECT_EQ(store.get("DALHNotifyNDN.Index"), "257");
}

TEST_F(Notifications, ALongRecordIsCut) {
    for (const char* field : {"DeviceDisplayName", "DeviceDisplayModel", "DisplayType", "DeviceDisplayBrand"}) {
        store.set(std::string("DeviceIdList.") + field + "@1", std::string(127, 'x'));
    }
    for (const char* field : {"ConnSSID", "DownloadBW", "UploadBW", "DeviceLinkRate"}) {
        store.set(std::string("ConnectDeviceinfo.") + field + "@1", std::string(127, 'y'));
    }
    dro::t_Handler_ndnSync(1);
    const std::string whole = take_payload();
    EXPECT_EQ(whole.size(), 1024U);
    dro::t_Handler_cdUpdate(1);
    EXPECT_EQ(take_payload(), ("[" + whole).substr(0, 1024));
}

TEST_F(Notifications, AFullQueueDropsTheEventAndSaysSo) {
    fill_queue();
    dro::t_Handler_ndnSync(1);
    EXPECT_TRUE(log.has("NDN Publishing Failed! Exiting thread!\n", 4));
    dro::t_Handler_dtnSync(1);
    EXPECT_TRUE(log.has("DTN Publishing Failed! Exiting thread!\n", 4));
    store.set("DALHNotifyCDUPDATE.IndexCD", "1");
    dro::t_Handler_cdUpdate(1);
    EXPECT_TRUE(log.has("UPDATE_CD Publishing Failed! Exiting thread!\n", 4));
    EXPECT_EQ(store.get("DALHNotifyCDUPDATE.IndexCD"), "257") << "the notifier is free again";
    store.set("BSTCfg.BSTStatus", "Complete");
    dro::bstStatus_cbHandler(nullptr);
    EXPECT_TRUE(log.has("BST publishing failed ,EXITING THREAD\n", 4));
}

// ---- Tagged devices ----

TEST_F(Notifications, ATaggedDeviceReachesTheCloudAndFreesItsNotifier) {
    start_all();
    store.set_all({{"DeviceIdList.DeviceMac@0", "0a:0b:0c:0d:0e:0f"}, {"Dilsignature.Devicestate@0", "UP"}});
    store.set("DALHNotifyDTN.Index", "0");
    const auto requests = cloud.wait_for(1);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].path, "/syncCD/");
    EXPECT_EQ(after_signature(requests[0].body),
              R"(,"type":"DTN","cd":{"mac":"0A:0B:0C:0D:0E:0F","cdType":"","cdName":"","cdModel":"","cdBrand":"",)"
              R"("cdNetwork":"Home router","cdStatus":"1"}})");
    EXPECT_TRUE(log.wait_for("Reset for the DTN Index\n")) << "the dispatcher's write coming back";
    EXPECT_EQ(store.get("DALHNotifyDTN.Index"), "257");
    EXPECT_EQ(log.count_starting("Successful to spawn DTN thread for Device on Index "), 1U);
    EXPECT_EQ(cloud.requests().size(), 1U);
}

TEST_F(Notifications, ATaggedDeviceIsDescribedByTheBestSources) {
    struct Case {
        const char* what;
        std::vector<std::pair<std::string, std::string>> fields;  // of DeviceIdList, unless a table is named
        std::string type, name, model, brand;
        const char* online;
    };
    const std::vector<Case> cases{
        {"nothing known", {}, "", "", "", "", "0"},
        {"set by the user",
         {{"DeviceTypeCustom", "t1"},
          {"DeviceTypeDPI", "t2"},
          {"DeviceTypeOstra", "t3"},
          {"DisplayNameCustom", "n1"},
          {"DisplayNameDPI", "n2"},
          {"DisplayNameOstra", "n3"},
          {"DisplayModelCustom", "m1"},
          {"DeviceModel", "m2"},
          {"DisplayBrandCustom", "b1"},
          {"DeviceBrand", "b2"},
          {"Dilsignature.Devicestate", "UP"}},
         "t1",
         "n1",
         "m1",
         "b1",
         "1"},
        {"found in its traffic",
         {{"DeviceTypeDPI", "t2"},
          {"DeviceTypeOstra", "t3"},
          {"DisplayNameDPI", "n2"},
          {"DisplayNameOstra", "n3"},
          {"DeviceModel", "m2"},
          {"DeviceBrand", "b2"},
          {"Dilsignature.Devicestate", "UPPER"}},
         "t2",
         "n2",
         "m2",
         "b2",
         "1"},
        {"by default",
         {{"DeviceTypeOstra", "t3"}, {"DisplayNameOstra", "n3"}, {"Dilsignature.Devicestate", "up"}},
         "t3",
         "n3",
         "",
         "",
         "0"},
        {"hostile",
         {{"DeviceTypeCustom", "a\"b"},
          {"DisplayNameCustom", "tab\t\x01 \\ \"q\" \xc3\xa9"},
          {"DisplayModelCustom", "m\nm"},
          {"DisplayBrandCustom", "\x7f"},
          {"Dilsignature.Devicestate", ""}},
         R"(a\"b)",
         "tab\\t \\\\ \\\"q\\\" \xc3\xa9",
         R"(m\nm)",
         "\x7f",
         "0"},
    };
    store.set("General.DeviceName", "Ann's \"net\"");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        const std::string row = "@" + std::to_string(i + 1);
        for (const auto& [field, value] : c.fields) {
            const bool named = field.find('.') != std::string::npos;
            store.set((named ? field : "DeviceIdList." + field) + row, value);
        }
        EXPECT_EQ(tagged_payload(static_cast<unsigned>(i + 1)),
                  R"({"mac":"00:00:00:00:00:00","cdType":")" + c.type + R"(","cdName":")" + c.name +
                      R"(","cdModel":")" + c.model + R"(","cdBrand":")" + c.brand +
                      R"(","cdNetwork":"Ann's "net"","cdStatus":")" + c.online + "\"}")
            << c.what;
        EXPECT_TRUE(log.has(*c.online == '1' ? "Device is Online!\n" : "Device is Offline!\n", 2));
        log.forget();
    }
}

TEST_F(Notifications, ASourceThatCannotBeReadIsPassedOver) {
    store.set_all({{"DeviceIdList.DeviceTypeCustom@2", "t1"}, {"DeviceIdList.DeviceTypeDPI@2", "t2"}});
    StoreSpy spy;
    spy.fail("DeviceIdList.DeviceTypeCustom", HAB_TIMEOUT);
    EXPECT_EQ(json_value(tagged_payload(2), "cdType"), "t2");
    EXPECT_TRUE(log.has(std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4));
    EXPECT_TRUE(log.has("DeviceTypeCustom not present! get DPI type\n", 1));
    EXPECT_EQ(json_value(tagged_payload(300), "mac"), "00:00:00:00:00:00") << "no such row";
    EXPECT_TRUE(
        log.in_order({"DeviceTypeDPI not present! get default type\n", "DisplayNameCustom not present! get DPI\n",
                      "DisplayNameDPI not present! get Ostra\n", "DisplayModelCustom not present! get default Model\n",
                      "DisplayBrandCustom not present! get default Brand\n"}));
}

TEST_F(Notifications, ATaggedDevicesPayloadIsCut) {
    const std::string quotes(31, '"');
    store.set_all({{"DeviceIdList.DeviceTypeCustom@3", quotes},
                   {"DeviceIdList.DisplayNameCustom@3", std::string(63, '"')},
                   {"DeviceIdList.DisplayModelCustom@3", quotes}});
    const std::string payload = tagged_payload(3);
    EXPECT_EQ(payload.size(), 255U);
    std::string escaped;
    for (int i = 0; i < 63; ++i) {
        escaped += "\\\"";
    }
    EXPECT_NE(payload.find(R"("cdName":")" + escaped + "\""), std::string::npos);
}

// ---- Changed records ----

TEST_F(Notifications, AChangedRecordReachesTheCloud) {
    start_all();
    add_device(store, 0);
    store.set("DALHNotifyCDUPDATE.IndexCD", "0");
    const auto requests = cloud.wait_for(1);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].path, "/syncCD/");
    EXPECT_EQ(after_signature(requests[0].body),
              R"(,"type":"UPDATE_CD","syncAt":"CD_UPDATE","cdl":[)" + device_record(0) + "]}");
    EXPECT_TRUE(log.wait_for("Reset for the UPDATE_CD Index\n"));
    EXPECT_TRUE(log.has("Index  = 0\n"));
    EXPECT_EQ(store.get("DALHNotifyCDUPDATE.IndexCd"), "257");
    EXPECT_EQ(log.count_starting("Index  = "), 1U) << "the reset starts no thread";
}

TEST_F(Notifications, AnUpdateIsMarkedQueuedAndThenFreed) {
    const StoreSpy spy;
    dro::t_Handler_cdUpdate(1);
    EXPECT_EQ(spy.writes(), (std::vector<std::string>{"DroStatus.cdilsyncAt=CD_UPDATE",
                                                      "RADebugLog.dbgArg1=CDIL payload enqueue successfull",
                                                      "DALHNotifyCDUPDATE.IndexCd=257"}));
}

// ---- Speed tests ----

TEST_F(Notifications, AFinishedSpeedTestReachesTheCloudOnce) {
    start_all();
    EXPECT_TRUE(log.has("Registering Callback on BST Support Data Object!\n", 2));
    store.set_all({{"BSTResults.UplinkSpeed", "20"},
                   {"BSTResults.Downlinkspeed", "4294967295"},
                   {"BSTResults.ServerId", "2147483648"},
                   {"BSTResults.ISP", "Ann's \"net\""},
                   {"BSTResults.bstRequestType", "Scheduled"}});
    store.set("BSTCfg.BSTStatus", "Complete");
    const auto requests = cloud.wait_for(1);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].path, "/pushStData/");
    const std::string rest = after_signature(requests[0].body);
    const std::string start = R"(,"type":"B","data":{"isp":"Ann's "net"", "ul":"20", "dl":"-1", )"
                              R"("serverId":"-2147483648", "latency":"0", "timestamp":")";
    EXPECT_EQ(rest.substr(0, start.size()), start);
    EXPECT_EQ(rest.substr(std::min(rest.size(), start.size() + 10)), "\" }}") << "ten digits of time stamp before it";
    EXPECT_TRUE(log.wait_for("Invalid Value to sync!\n")) << "the dispatcher's reset coming back";
    EXPECT_EQ(store.get("BSTCfg.BSTStatus"), "Unknown");
    EXPECT_TRUE(log.has("BST Status Value : Unknown\n", 2));
    EXPECT_EQ(cloud.requests().size(), 1U);
}

TEST_F(Notifications, OnlyACompleteSpeedTestIsReported) {
    for (const char* status : {"complete", "Completed", "Complet", "Running", ""}) {
        store.set("BSTCfg.BSTStatus", status);
        dro::bstStatus_cbHandler(nullptr);
        EXPECT_TRUE(dro::isQueueEmpty()) << status;
    }
    EXPECT_EQ(log.count("Invalid Value to sync!\n", 1), 5U);
    store.set_all({{"BSTCfg.BSTStatus", "Complete"}, {"BSTResults.ISP", std::string(40, 'i')}});
    dro::bstStatus_cbHandler(nullptr);
    EXPECT_EQ(json_value(take_payload(), "isp"), std::string(31, 'i'));
    EXPECT_TRUE(log.has("BST payload Published successfully\n", 1));
}

}  // namespace
}  // namespace dro_test

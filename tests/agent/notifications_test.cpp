// From a notifier's row number to the cloud: new devices, tagged devices, changed records and finished speed tests; and
// failures to start a thread or allocate memory.
#include <cJSON.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <utility>

#include "agent_probe.h"
#include "dro_bst.h"
#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_dal.h"
#include "dro_device_index.h"
#include "dro_dispatcher.h"
#include "dro_dtn.h"
#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_get_set_config_envelope.h"
#include "dro_ndn.h"
#include "dro_url_pipeline.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class Notifications : public AgentTest {
 protected:
    // Starts the pipeline of a claimed router with all features.
    void start_all() {
        store.set_all({{"DroStatus.dispatcherSupport", "true"},
                       {"DroStatus.cdilSupport", "true"},
                       {"DroStatus.BSTSupport", "true"},
                       {"DroCfg.claimState", "true"}});
        dro::init_devToCld_push_sync();
    }

    // Writes a notifier and expects exactly one push with this content.
    void expect_push(const char* notifier, const char* value, const std::string& rest) {
        cloud.forget();
        store.set(notifier, value);
        EXPECT_EQ(cloud.wait_for(1, "syncCD/").size(), 1U);
        EXPECT_EQ(after_signature(only_request().body), rest);
    }

    static std::string tagged_payload(unsigned row) {
        dro::t_Handler_dtnSync(row);
        return take_payload();
    }
};

TEST_F(Notifications, EachDeviceReachesTheCloud) {
    start_all();
    add_device(store, 0);
    add_device(store, 7);
    expect_push("DALHNotifyNDN.Index", "7", R"(,"type":"NDN","cd":)" + device_record(7) + "}");
    EXPECT_TRUE(log.wait_for("Successful to spawn thread for Device on Index 7"));
    EXPECT_TRUE(log.wait_for("NDN Published Successfully, exiting thread!\n"));
    expect_push("DALHNotifyDTN.Index", "0",
                R"(,"type":"DTN","cd":{"mac":"0A:00:00:00:00:00","cdType":"","cdName":"","cdModel":"","cdBrand":"",)"
                R"("cdNetwork":"Home router","cdStatus":"1"}})");
    EXPECT_TRUE(log.wait_for("Reset for the DTN Index\n")) << "the notice of the dispatcher's own write";
    EXPECT_EQ(store.get("DALHNotifyDTN.Index"), "257");
    expect_push("DALHNotifyCDUPDATE.IndexCD", "0",
                R"(,"type":"UPDATE_CD","syncAt":"CD_UPDATE","cdl":[)" + device_record(0) + "]}");
    EXPECT_TRUE(log.wait_for("Reset for the UPDATE_CD Index\n"));
    EXPECT_EQ(store.get("DALHNotifyCDUPDATE.IndexCd"), "257");
    EXPECT_EQ(log.count_starting("Index  = ") + log.count_starting("Index in DTN t_Handler is "), 2U)
        << "the resets start no thread";

    // 257 means "no device" in the other notifiers, but not in this one.
    store.set("DALHNotifyNDN.Index", "257");
    EXPECT_EQ(cloud.wait_for(2).size(), 2U);
    EXPECT_TRUE(log.has("Index in NDN t_Handler is 257\n"));
}

TEST_F(Notifications, ALongPayloadIsTruncated) {
    add_wordy_device(store, 1);
    dro::t_Handler_ndnSync(1);
    const std::string record = take_payload();
    EXPECT_EQ(record.size(), 1024U);
    dro::t_Handler_cdUpdate(1);
    EXPECT_EQ(take_payload(), ("[" + record).substr(0, 1024));
    store.set_all({{"DeviceIdList.DeviceTypeCustom@3", std::string(31, '"')},
                   {"DeviceIdList.DisplayNameCustom@3", std::string(63, '"')},
                   {"DeviceIdList.DisplayModelCustom@3", std::string(31, '"')}});
    const std::string tagged = tagged_payload(3);
    EXPECT_EQ(tagged.size(), 255U);
    EXPECT_EQ(tagged.find(R"(","cdModel":")") - tagged.find(R"("cdName":")"), 10U + 2 * 63) << "no escape is truncated";
}

TEST_F(Notifications, ADeviceFoundByTheResetIsHandledWhileNoticesAreDelayed) {
    start_all();
    add_device(store, 5);
    add_device(store, 7);
    static std::atomic<bool> held;
    static std::atomic<bool> goOn;
    dro::dal_call_on_change(
        "CircleDebug", "rClientStatus",
        [](void*) {
            held = true;
            eventually([] { return goOn.load(); });
            held = false;
        },
        nullptr);
    for (const char* notifier : {"DALHNotifyDTN.Index", "DALHNotifyCDUPDATE.IndexCD"}) {
        cloud.forget();
        held = goOn = false;
        const auto hold_up_and_change = [&] {
            if (!held) {
                store.set("CircleDebug.rClientStatus", "stalls");
                EXPECT_TRUE(eventually([] { return held.load(); }));
                store.set(notifier, "7");
            }
        };
        StoreSpy spy;
        spy.before_write("DroStatus.cdilsyncAt", hold_up_and_change);  // an update resets its field soon after
        cloud.script("syncCD/", {kStall});
        store.set(notifier, "5");
        ASSERT_EQ(cloud.wait_for(1, "syncCD/").size(), 1U);
        hold_up_and_change();  // a tagged device's field is reset after the push
        cloud.release();
        const auto pushes = cloud.wait_for(2, "syncCD/");
        EXPECT_EQ(pushes.size(), 2U) << notifier;
        EXPECT_NE(pushes.back().body.find(R"("mac":"0A:00:00:00:00:07")"), std::string::npos) << notifier;
        EXPECT_TRUE(store.wait_for(notifier, "257")) << notifier;
        goOn = true;
        EXPECT_TRUE(eventually([] { return !held; }));
    }
}

TEST_F(Notifications, AnEventWithoutASlotOrAThreadIsDroppedAndItsFieldReset) {
    const Cases<void (*)(), void (*)(void*), const char*, const char*, Texts, std::string> cases{
        // thread, handler, its field, value, writes of the handler, event
        {[] { dro::t_Handler_ndnSync(5); }, dro::ndnIndex_cbHandler, "DALHNotifyNDN.Index", "5", {}, "NDN"},
        {[] { dro::t_Handler_dtnSync(5); },
         dro::dtnIndex_cbHandler,
         "DALHNotifyDTN.Index",
         "5",
         {"DALHNotifyDTN.Index=257"},
         "DTN"},
        {[] { dro::t_Handler_cdUpdate(5); },
         dro::cdUpdate_cbHandler,
         "DALHNotifyCDUPDATE.IndexCD",
         "5",
         {"DroStatus.cdilsyncAt=CD_UPDATE", "DALHNotifyCDUPDATE.IndexCd=257"},
         "UPDATE_CD"},
        {dro::t_Handler_cdilSync,
         dro::cdilStatus_cbHandler,
         "DALHNotifyCDIL.CDILstatus",
         "complete",
         {"DALHNotifyCDIL.CDILstatus=init"},
         "CDIL"}};
    store.set_all({{"DroStatus.cdilSupport", "true"},
                   {"DALHNotifyCDIL.TotalIndexcount", "1"},
                   {"DALHNotifyCDIL.CDILstatus", "complete"}});
    fill_queue();
    const Places none(0);
    for (const auto& [thread, handler, field, value, writes, event] : cases) {
        const std::string dropped = event + " Publishing Failed! Exiting thread!\n";
        thread();
        EXPECT_EQ(log.count(dropped, 4), 1U);
        store.set(field, value);
        const StoreSpy spy;
        handler(nullptr);
        EXPECT_EQ(log.count(dropped, 4), 2U);
        EXPECT_TRUE(log.has("All 0 places for monitors and producers are taken: none for " + event + "\n", 4));
        EXPECT_EQ(spy.writes(), writes);
    }
    log.forget();
    dro::cdilStatus_cbHandler(nullptr);  // the notice of the reset
    store.set("BSTCfg.BSTStatus", "Complete");
    dro::bstStatus_cbHandler(nullptr);
    EXPECT_EQ(log.texts(4), Texts{"BST publishing failed ,EXITING THREAD"});
}

// A device that is written between the reset's read and its write is lost: the store has no conditional write.
TEST_F(Notifications, AResetReturnsTheNextDeviceOnce) {
    const Places none(0);
    dro::DeviceIndex index(dro::fields::dtnIndex);
    for (const unsigned places : {0U, 1U}) {
        store.set("DALHNotifyDTN.Index", "5");
        std::uint32_t row = index.read();
        store.set("DALHNotifyDTN.Index", "7");
        StoreSpy spy;
        spy.before_write("DALHNotifyDTN.Index", [places] { dro::set_places(places); });
        EXPECT_EQ(index.take_place_for(row, "DTN", [] { LOG_ERROR("dropped\n"); }) != nullptr, places == 1);
        EXPECT_EQ(row, places == 1 ? 7U : dro::fields::kNoDevice);
        EXPECT_EQ(log.count("dropped\n", 4), places == 1 ? 3U : 2U);
        EXPECT_EQ(store.get("DALHNotifyDTN.Index"), "257");
    }
    // A device whose reset failed is not found again.
    store.set("DALHNotifyDTN.Index", "5");
    EXPECT_EQ(index.read(), 5U);
    StoreSpy spy;
    spy.fail("DALHNotifyDTN.Index", HAB_TIMEOUT);
    EXPECT_EQ(index.reset(), dro::fields::kNoDevice);
    EXPECT_EQ(index.reset(), dro::fields::kNoDevice);
}

TEST_F(Notifications, ATaggedDeviceIsDescribedByTheBestSources) {
    const Texts guessed{"DeviceTypeOstra", "DisplayNameOstra", "DeviceModel", "DeviceBrand"};
    const Texts inspected{"DeviceTypeDPI", "DisplayNameDPI"};
    const Texts custom{"DeviceTypeCustom", "DisplayNameCustom", "DisplayModelCustom", "DisplayBrandCustom"};
    // Each case adds one known property of the device.
    const auto expect = [&](const char* state, const Texts& fields, const Texts& values, const std::string& described,
                            bool online) {
        log.forget();
        store.set("Dilsignature.Devicestate@1", state);
        for (std::size_t i = 0; i < values.size(); ++i) {
            store.set("DeviceIdList." + fields[i] + "@1", values[i]);
        }
        EXPECT_EQ(tagged_payload(1), R"({"mac":"00:00:00:00:00:00",)" + described +
                                         R"(,"cdNetwork":"Ann's "net"","cdStatus":")" + (online ? "1\"}" : "0\"}"));
        EXPECT_TRUE(log.has(online ? "Device is Online!\n" : "Device is Offline!\n", 2)) << described;
    };
    store.set("General.DeviceName", "Ann's \"net\"");
    expect("DOWN", {}, {}, R"("cdType":"","cdName":"","cdModel":"","cdBrand":"")", false);
    expect("up", guessed, {"t3", "n3", "m2", "b2"}, R"("cdType":"t3","cdName":"n3","cdModel":"m2","cdBrand":"b2")",
           false);
    expect("UPPER", inspected, {"t2", "n2"}, R"("cdType":"t2","cdName":"n2","cdModel":"m2","cdBrand":"b2")", true);
    expect("UP", custom, {"t1", "n1", "m1", "b1"}, R"("cdType":"t1","cdName":"n1","cdModel":"m1","cdBrand":"b1")",
           true);
    expect("", custom, {"a\"b", "tab\t\x01 \\ \"q\" \xc3\xa9", "m\nm", "\x7f"},
           "\"cdType\":\"a\\\"b\",\"cdName\":\"tab\\t \\\\ \\\"q\\\" "
           "\xc3\xa9\",\"cdModel\":\"m\\nm\",\"cdBrand\":\"\x7f\"",
           false);
}

TEST_F(Notifications, AnUnreadableSourceIsSkipped) {
    store.set_all({{"DeviceIdList.DeviceTypeCustom@2", "t1"}, {"DeviceIdList.DeviceTypeDPI@2", "t2"}});
    StoreSpy spy;
    spy.fail("DeviceIdList.DeviceTypeCustom", HAB_TIMEOUT);
    EXPECT_EQ(json_value(tagged_payload(2), "cdType"), "t2");
    EXPECT_TRUE(log.has(std::string(hab_error_string(HAB_TIMEOUT)) + "\n", 4));
    EXPECT_EQ(json_value(tagged_payload(300), "mac"), "00:00:00:00:00:00") << "no such row";
    EXPECT_TRUE(
        log.in_order({"DeviceTypeCustom not present! get DPI type\n", "DeviceTypeDPI not present! get default type\n",
                      "DisplayNameCustom not present! get DPI\n", "DisplayNameDPI not present! get Ostra\n",
                      "DisplayModelCustom not present! get default Model\n",
                      "DisplayBrandCustom not present! get default Brand\n"}));
}

// ---- Speed tests ----

TEST_F(Notifications, AFinishedSpeedTestIsReportedOnce) {
    start_all();
    EXPECT_TRUE(log.has("Registering Callback on BST Support Data Object!\n", 2));
    store.set_all({{"BSTResults.UplinkSpeed", "20"},
                   {"BSTResults.Downlinkspeed", "4294967295"},
                   {"BSTResults.ServerId", "2147483648"},
                   {"BSTResults.ISP", "Ann's \"net\""}});
    store.set("BSTCfg.BSTStatus", "Complete");
    EXPECT_EQ(cloud.wait_for(1, "pushStData/").size(), 1U);
    const std::string rest = after_signature(only_request().body);
    const std::string start = R"(,"type":"M","data":{"isp":"Ann's "net"", "ul":"20", "dl":"-1", )"
                              R"("serverId":"-2147483648", "latency":"0", "timestamp":")";
    EXPECT_EQ(rest.substr(0, start.size()), start);
    EXPECT_EQ(rest.substr(std::min(rest.size(), start.size() + 10)), "\" }}") << "ten digits of time stamp precede it";
    EXPECT_TRUE(log.wait_for("Invalid Value to sync!\n")) << "the notice of the agent's own reset";
    EXPECT_TRUE(log.has("BST Status Value : Unknown\n", 2));
    EXPECT_EQ(cloud.requests().size(), 1U);
}

TEST_F(Notifications, OnlyACompleteSpeedTestIsReported) {
    store.set("BSTResults.ISP", std::string(40, 'i'));
    for (const std::string status : {"complete", "Completed", "Complet", "", "Complete"}) {
        store.set("BSTCfg.BSTStatus", status);
        dro::bstStatus_cbHandler(nullptr);
        EXPECT_EQ(dro::isQueueEmpty(), status != "Complete") << status;
    }
    EXPECT_EQ(log.count("Invalid Value to sync!\n", 1), 4U);
    EXPECT_EQ(json_value(take_payload(), "isp"), std::string(31, 'i'));
    EXPECT_TRUE(log.has("BST payload Published successfully\n", 1));
}

// ---- Threads ----

// The supervisor restarts the agent.
TEST_F(Notifications, ExitTheProcessWhenAThreadCannotBeStarted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char* flag : {"cdilSupport", "dispatcherSupport", "CircleAct", "CircleProvision", "CircleToggle"}) {
        store.set(std::string("DroStatus.") + flag, "true");
    }
    store.set_all({{"DALHNotifyDTN.Index", "1"}, {"DALHNotifyCDUPDATE.IndexCD", "1"}});
    const Cases<void (*)(void*), std::string> cases{
        {dro::ndnIndex_cbHandler, "Failed to initialize Thread for ndnSync\n: "},
        {dro::dtnIndex_cbHandler, "Failed to initialize DTN Sync thread to enqueue fifo\n: "},
        {dro::cdUpdate_cbHandler, ""},
        {dro::cdilStatus_cbHandler, "Error:: "},
        {dro::circleAct_cbHandler, "Failed to initialize Thread for CircleAct\n: "},
        {dro::circleProvision_cbHandler, "Failed to initialize Thread for CircleProvision\n: "},
        {dro::circleToggle_cbHandler, "Failed to initialize Thread for CircleAct\n: "},
        {[](void*) { dro::init_dispatcher(); }, "Failed to initialize DROAgent's Dispatcher\n: "}};
    for (const auto& [start, said] : cases) {
        const FailCalls fault(Call::threadCreate, EAGAIN);
        EXPECT_EXIT(start(nullptr), ::testing::ExitedWithCode(1), "^" + said) << said;
    }
}

// ---- Memory ----

// Memory runs out while JSON is parsed or printed, at each allocation in turn. The operation continues or logs an error
// and stops, and the next attempt succeeds.
int g_left = 0;  // allocations until one fails; negative: it has failed

void* allocate(std::size_t size) {
    return g_left-- == 0 ? nullptr : std::malloc(size);
}

class ScarceMemory : public AgentTest {
 protected:
    ScarceMemory() {
        cJSON_Hooks hooks{allocate, std::free};
        cJSON_InitHooks(&hooks);
    }
    ~ScarceMemory() override { cJSON_InitHooks(nullptr); }

    // The queued event and the requests sent.
    Texts made() {
        Texts texts = dro::isQueueEmpty() ? Texts{} : Texts{take_payload()};
        for (const Request& request : cloud.requests()) {
            texts.push_back(request.body);
        }
        cloud.forget();
        return texts;
    }
};

TEST_F(ScarceMemory, IsReportedAndNoPartialTextIsSent) {
    add_device(store, 0);
    dro::IndexList first{};
    const std::string command = envelope("u", "BLOCK_CD", R"({"cdMac":"02:00:00:00:00:01"})");
    const Cases<std::function<void()>, Texts> cases{
        {[] { dro::t_Handler_ndnSync(0); },
         {"[DROAGENT] - Failed to create cJSON root\n",
          "[DROAGENT] - Failed to render NDN JSON object to NDN JSON payload.\n"}},
        {[] { dro::t_Handler_cdUpdate(0); },
         {"[DROAGENT] - Failed to create cJSON array\n",
          "[DROAGENT] - Failed to render UPDATE_CD JSON array to UPDATE_CD JSON payload.\n"}},
        {[&first] { dro::syncCdil_timerExit(1, first); },
         {"[DROAGENT] - Failed to create cJSON array\n", "[DROAGENT] - Failed to create cJSON root\n",
          "[DROAGENT] - Failed to render CDIL JSON array to CDIL JSON payload.\n"}},
        {[] { dro::sendClientStatus("RCLIENT", "CONNECTED"); },
         {"(DROAGENT) - Cannot create jobj object\n", "(DROAGENT) - Failure to allocate cjson message buffer\n"}},
        {[&command] { dro::parseUUIDBaseBuffer(command.c_str()); }, {}}};
    for (const auto& [work, said] : cases) {
        SCOPED_TRACE(::testing::PrintToString(said));
        forget();
        int failing = 0;
        for (g_left = 0, work(); std::exchange(g_left, -1) < 0; g_left = ++failing, work()) {
            for (const std::string& text : made()) {
                EXPECT_TRUE(dro::Json(cJSON_ParseWithOpts(text.c_str(), nullptr, 1))) << text;
            }
            ASSERT_LT(failing, 1000);
        }
        EXPECT_GT(failing, 5);
        EXPECT_EQ(made().size(), 1U) << "the complete text";
        for (const std::string& text : said) {
            EXPECT_TRUE(log.has(text, 4)) << text;
        }
    }
}

}  // namespace
}  // namespace dro_test

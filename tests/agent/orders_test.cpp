// Orders in sequence: each accepted order has exactly one outcome, whatever transaction ids repeat, whenever the next
// order arrives, and whether the store reports every write or only changes.
#include <algorithm>
#include <array>
#include <atomic>
#include <utility>

#include "agent_probe.h"
#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_dal.h"
#include "dro_fifo.h"
#include "dro_get_set_config_list.h"
#include "dro_main.h"
#include "dro_monitor.h"
#include "dro_url.h"
#include "dro_url_pipeline.h"
#include "pipeline.h"
#include "rounds.h"

namespace dro_test {
namespace {

constexpr const char* kAnswer = "CircleCfgInternal.activationStatusDROA";

// ---- Circle orders, two at a time ----

struct Kind {
    const char* command;
    const char* data;
    dro::Mutex& mutex;
    dro::MonitorSignal& signal;
    dro::Orders& orders;
    const char* answerField;
    const char* answer;
};

const std::array<Kind, 6>& kinds() {
    static const std::array<Kind, 6> all{{
        {"ACTIVATE_CIRCLE", R"({"overRide":1})", dro::mutex_act_lock, dro::activationResponse, dro::activation_orders(),
         kAnswer, "deactivated"},
        {"DEACTIVATE_CIRCLE", R"({"overRide":1})", dro::mutex_act_lock, dro::activationResponse,
         dro::activation_orders(), kAnswer, "deactivated"},
        {"PROVISION_CIRCLE",
         R"({"circleId":"c","accessToken":"a","refreshToken":"r","localToken":"l","cloudHost":"h"})",
         dro::mutex_prov_lock, dro::provisionResponse, dro::provision_orders(), kAnswer, "provisioned"},
        {"TOGGLE_CIRCLE_STATE", R"({"toggle":"on"})", dro::mutex_toggle_lock, dro::circleToggleResponse,
         dro::toggle_orders(), "CircleCfgInternal.sorbEnableStatusDROA", "enabled"},
        {"TOGGLE_CIRCLE_STATE", R"({"toggle":"off"})", dro::mutex_toggle_lock, dro::circleToggleResponse,
         dro::toggle_orders(), "CircleCfgInternal.sorbEnableStatusDROA", "disabled"},
        // Used as a first order only: it is answered by a running service and reported to the Circle endpoint.
        {"ACTIVATE_CIRCLE", R"({"overRide":1})", dro::mutex_act_lock, dro::activationResponse, dro::activation_orders(),
         kAnswer, "activated"},
    }};
    return all;
}
constexpr std::size_t kProvision = 2;
constexpr std::size_t kToggleOn = 3;
constexpr std::size_t kActivated = 5;

enum class When { beforeTheFirstWaits, whileItWaits, whileItReports };

// The router's state before the first order: an open activation "a-0" of a provisioned service.
struct Router {
    std::string circleUuid = "a-0";
    bool open = true;
};

// The acknowledgements of an order, including its outcome.
Texts expected(std::size_t kind, const std::string& uuid, Router& router) {
    if (kind == kActivated) {
        router = {uuid, true};
        return {uuid + " reported as running"};
    }
    if (kind < kProvision) {
        router = {uuid, true};
        return {uuid + " 1 Success-Deactivated_"};
    }
    if (kind == kProvision) {
        const bool open = std::exchange(router.open, false);
        if (uuid == router.circleUuid) {
            return {uuid + " 1 Already Provisioned", uuid + " 1 Success-Already Provisioned_"};
        }
        return open ? Texts{uuid + " 1 Success: Provision running", router.circleUuid + " 1 Success-Provisioned_"}
                    : Texts{uuid + " 0 Invalid Operation, Circle Action was not initiated"};
    }
    if (uuid == router.circleUuid) {
        return {};  // the activation's own id: not acknowledged
    }
    return {uuid + (kind == kToggleOn ? " 1 Success-Enabled" : " 1 Success-Disabled")};
}

class OrderPairs : public AgentTest, public ::testing::WithParamInterface<bool> {
 protected:
    void prepare(bool shortWatch) {
        durations.circleWatch = shortWatch ? std::chrono::milliseconds(150) : std::chrono::milliseconds(kPatience);
        dro::set_durations(durations);
        dro::dal_destroy();
        store.set_all({{"DroCfg.circle_uuid", "a-0"},
                       {"DroStatus.CircleAct", "true"},
                       {"DroStatus.CircleProvision", "false"},
                       {"DroStatus.CircleToggle", "false"},
                       {"CircleStatus.activationStatus", "provisioned"},
                       {"CircleStatus.sorbStatus", "none"},
                       {kAnswer, "none"},
                       {"CircleCfgInternal.sorbEnableStatusDROA", "none"}});
        start_agent();
        dro::circle_cb_subscription();
        dro::dal_call_on_change(
            "DALHNotifyNDN", "Index", [](void* count) { ++*static_cast<std::atomic<int>*>(count); }, &handled_);
        forget();
    }
    // Waits until the agent has handled every notice so far, which are delivered in order.
    void handle_notices() {
        const int before = handled_;
        store.set("DALHNotifyNDN.Index", "1");
        EXPECT_TRUE(eventually([&] { return handled_ > before; }));
    }
    static void send(const Kind& kind, const std::string& uuid) {
        dro::JorvAgentNotification_cbHandler(envelope(uuid, kind.command, kind.data).c_str());
    }
    // The Circle agent answers all waiting monitors, one after the other. Only the first of two toggles can be
    // answered: when its monitor finishes, no toggle is outstanding.
    void answer_all(const Kind& first, const Kind& second) {
        while (active_monitors() > 0 && !HasFailure()) {
            const Kind& waiting = waiters(first.signal) > 0 ? first : second;
            if (waiters(waiting.signal) == 0) {
                std::this_thread::yield();
                continue;
            }
            const int before = waiting.orders.alive();
            store.set(waiting.answerField, waiting.answer);
            EXPECT_TRUE(eventually([&] { return waiting.orders.alive() < before; })) << waiting.command;
        }
    }
    void run(std::size_t first, std::size_t second, const std::string& uuid, When when) {
        const bool twoToggles = first >= kToggleOn && first < kActivated && second >= kToggleOn;
        prepare(twoToggles);
        StoreSpy spy;
        if (GetParam()) {
            spy.report_changes_only();
        }
        Router router;
        Texts all = expected(first, "x", router);
        const Texts more = expected(second, uuid, router);
        all.insert(all.end(), more.begin(), more.end());

        const Kind& one = kinds()[first];
        if (when == When::beforeTheFirstWaits) {
            pthread_mutex_lock(one.mutex.native());
        }
        send(one, "x");
        if (when != When::beforeTheFirstWaits) {
            ASSERT_TRUE(eventually([&] { return waiters(one.signal) == 1; }));
        }
        if (when == When::whileItReports) {
            const std::size_t before = cloud.requests().size();
            cloud.script(first == kActivated ? "pc/circle/cuuid" : "transactionAck/", {kStall});
            store.set(one.answerField, one.answer);
            ASSERT_EQ(cloud.wait_for(before + 1).size(), before + 1);
        }
        send(kinds()[second], uuid);
        if (when == When::beforeTheFirstWaits) {
            pthread_mutex_unlock(one.mutex.native());
        }
        handle_notices();
        if (when == When::whileItReports) {
            const int alive = one.orders.alive();
            cloud.release();
            ASSERT_TRUE(eventually([&] { return one.orders.alive() < alive; }));
        }
        answer_all(when == When::whileItReports ? kinds()[second] : one, kinds()[second]);
        handle_notices();
        Texts got = acknowledgements(0);
        for (const Request& request : cloud.requests("pc/circle/cuuid")) {
            got.push_back(json_value(request.body, "uuid") + " reported as running");
        }
        if (twoToggles) {  // the answer may reach either of the two
            for (Texts* texts : {&got, &all}) {
                for (std::string& text : *texts) {
                    text = text.substr(0, text.find(' ')) + " toggled";
                }
            }
        }
        std::sort(got.begin(), got.end());
        std::sort(all.begin(), all.end());
        EXPECT_EQ(got, all);
    }

    std::atomic<int> handled_{0};
};

TEST_P(OrderPairs, EachHasItsOwnOutcome) {
    for (const When when : {When::beforeTheFirstWaits, When::whileItWaits, When::whileItReports}) {
        for (std::size_t first = 0; first < (when == When::whileItReports ? kinds().size() : kActivated); ++first) {
            for (std::size_t second = 0; second < kActivated; ++second) {
                for (const char* uuid : {"x", "y"}) {
                    SCOPED_TRACE(std::string(kinds()[first].command) + " x, " + kinds()[second].command + " " + uuid +
                                 ", timing " + std::to_string(static_cast<int>(when)));
                    run(first, second, uuid, when);
                    if (HasFailure()) {
                        return;
                    }
                }
            }
        }
    }
}
INSTANTIATE_TEST_SUITE_P(Stores, OrderPairs, ::testing::Bool(),
                         [](const auto& store) { return store.param ? "ChangesOnly" : "EveryWrite"; });

// ---- One order ----

class OneOrder : public AgentTest {
 protected:
    void start() {
        durations.circleWatch = durations.listWatch = std::chrono::milliseconds(100);
        dro::set_durations(durations);
        dro::circle_cb_subscription();
        store.set("DroStatus.cdilSupport", "true");
        dro::init_devToCld_push_sync();
    }
    Texts outcomes() {
        EXPECT_TRUE(eventually([] { return active_monitors() == 0; }));
        return acknowledgements(0);
    }
};

TEST_F(OneOrder, HasItsMonitorWhereTheFlagWasTrueBefore) {
    store.set_all({{"DroStatus.CircleToggle", "true"}, {"DroStatus.cdilTimeout", "true"}});
    start();
    StoreSpy spy;
    spy.report_changes_only();
    dro::toggle_orders().give({.uuid = dro::FixedText<128>("x")});
    dro::init_fetch_cd("y", 0, "app");
    Texts got = acknowledgements(2);
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (Texts{"x 0 Fail-Error timeout", "y 0 CDIL:Fail-Error timeout"}));
}

TEST_F(OneOrder, IsWithdrawnWhenItsFlagCannotBeWrittenAndNotKeptWithoutACallback) {
    dro::toggle_orders().give({.uuid = dro::FixedText<128>("unwatched")});
    start();
    {
        StoreSpy spy;
        spy.fail("DroStatus.CircleToggle", HAB_TIMEOUT);
        // The notice of an earlier write arrives during the order's own write.
        spy.before_write("DroStatus.CircleToggle", [this] {
            store.set("DroStatus.CircleToggle", "false");
            EXPECT_TRUE(log.wait_for("Circle Toggle callback\n"));
        });
        dro::toggle_orders().give({.uuid = dro::FixedText<128>("failed")});
    }
    store.set_all({{"DroStatus.CircleToggle", "false"}, {"DroCfg.circle_toggle_uuid", "stored"}});
    store.set("DroStatus.CircleToggle", "true");  // written by another program
    EXPECT_EQ(acknowledgements(1), Texts{"stored 0 Fail-Error timeout"});
    EXPECT_EQ(outcomes().size(), 1U);
}

// An earlier monitor resets the flag before the notice of the next order is handled.
TEST_F(OneOrder, IsTakenAlsoWhenItsFlagReadsFalseByThen) {
    start();
    static std::atomic<bool> goOn;
    goOn = false;
    dro::dal_call_on_change(
        "DALHNotifyNDN", "Index", [](void*) { eventually([] { return goOn.load(); }); }, nullptr);
    store.set("DALHNotifyNDN.Index", "1");  // delays the notices behind it
    dro::toggle_orders().give({.uuid = dro::FixedText<128>("x")});
    store.set("DroStatus.CircleToggle", "false");
    goOn = true;
    EXPECT_EQ(acknowledgements(1), Texts{"x 0 Fail-Error timeout"});
}

// ---- Lists ----

class Fetches : public AgentTest {
 protected:
    void start(std::chrono::milliseconds watch) {
        durations.listWatch = watch;
        durations.circleWatch = kPatience;
        dro::set_durations(durations);
        store.set_all({{"DroStatus.cdilSupport", "true"},
                       {"DroStatus.dispatcherSupport", "true"},
                       {"DALHNotifyCDIL.IndexBitMask0", "1"},
                       {"DALHNotifyCDIL.TotalIndexcount", "1"}});
        dro::circle_cb_subscription();
        dro::init_devToCld_push_sync();
    }
    void fetch(const std::string& uuid, int waiting) {
        dro::init_fetch_cd(uuid.c_str(), 0, "app");
        ASSERT_TRUE(eventually([&] { return waiters(dro::timeoutResponse) == waiting; }));
    }
    void complete_list() { store.set("DALHNotifyCDIL.CDILstatus", "complete"); }
    static bool watches_end(int left) {
        return eventually([left] { return dro::list_orders().alive() == left; });
    }
};

TEST_F(Fetches, SixtyPairsHaveAnOutcomeEach) {
    start(std::chrono::milliseconds(500));
    int both = 0;
    for (int pair = 0; pair < 60; ++pair) {
        cloud.forget();
        const std::string first = "f-" + std::to_string(pair);
        const std::string second = "s-" + std::to_string(pair);
        dro::init_fetch_cd(first.c_str(), 0, "app");
        complete_list();
        std::this_thread::sleep_for(std::chrono::milliseconds(pair * 50 / 59));  // the interval under test
        dro::init_fetch_cd(second.c_str(), 0, "app");
        complete_list();
        for (const std::string& uuid : {first, second}) {
            const auto count = [&](const char* outcome) {
                const Texts all = acknowledgements(0);
                return std::count(all.begin(), all.end(), uuid + outcome);
            };
            const auto listed = [&] { return count(" 1 Success") > 0; };
            const auto late = [&] { return count(" 0 CDIL:Fail-Error timeout"); };
            EXPECT_TRUE(eventually([&] { return listed() || late() > 0; })) << uuid;
            EXPECT_TRUE(eventually([] { return active_monitors() == 0 && dro::isQueueEmpty(); }));
            EXPECT_LE(late(), 1) << uuid;
            EXPECT_TRUE(listed() || late() == 1) << uuid;
            both += listed() && late() == 1 ? 1 : 0;
        }
    }
    // The monitor is not waiting yet when the list of the first fetch is sent under its id.
    tell("answered with a list and with the time-out: ", both, " of 120");
    EXPECT_LE(both, 12);
}

TEST_F(Fetches, AListEndsTheWatchesOfItsOwnTransaction) {
    start(kPatience);
    fetch("one", 1);
    fetch("two", 2);
    fetch("two", 3);
    complete_list();
    ASSERT_TRUE(watches_end(1)) << "both of the second transaction";
    store.set("DroStatus.cdilTransUuid", "Noop");
    complete_list();  // answers no transaction
    ASSERT_EQ(cloud.wait_for(1, "syncCD/").size(), 1U);
    store.set("DALHNotifyCDIL.TotalIndexcount", "0");
    store.set("DroStatus.cdilTransUuid", "one");
    complete_list();  // an empty list, which is sent directly
    ASSERT_EQ(cloud.wait_for(2, "transactionAck/").size(), 2U);
    EXPECT_EQ(waiters(dro::timeoutResponse), 1);
    log.forget();
    store.set("RADebugLog.cdilDebugStatus", "none");
    ASSERT_TRUE(log.wait_for("cdilDebugStatus field set to none\n"));
    EXPECT_EQ(waiters(dro::timeoutResponse), 1);
    store.set("RADebugLog.cdilDebugStatus", "success");  // written by another program
    EXPECT_TRUE(watches_end(0));
    EXPECT_TRUE(log.has("Cdil Successful\n"));
    EXPECT_EQ(store.get("RADebugLog.cdilDebugStatus"), "none");
}

TEST_F(Fetches, AStaleResultIsClearedWhateverCircleMonitorRuns) {
    start(kPatience);
    store.set("RADebugLog.cdilDebugStatus", "success");
    store.set("DroStatus.CircleAct", "true");
    ASSERT_TRUE(eventually([] { return waiters(dro::activationResponse) == 1; }));
    fetch("one", 1);
    EXPECT_EQ(store.get("RADebugLog.cdilDebugStatus"), "none");
}

}  // namespace
}  // namespace dro_test

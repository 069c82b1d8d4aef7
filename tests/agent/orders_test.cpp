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
#include "dro_get_set_config_list.h"
#include "dro_main.h"
#include "dro_url_pipeline.h"
#include "faults.h"
#include "pipeline.h"

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

// A deactivation has the same monitor as an activation.
const std::array<Kind, 3>& kinds() {
    static const std::array<Kind, 3> all{{
        {"ACTIVATE_CIRCLE", R"({"overRide":1})", dro::mutex_act_lock, dro::activationResponse, dro::activation_orders(),
         kAnswer, "deactivated"},
        {"PROVISION_CIRCLE",
         R"({"circleId":"c","accessToken":"a","refreshToken":"r","localToken":"l","cloudHost":"h"})",
         dro::mutex_prov_lock, dro::provisionResponse, dro::provision_orders(), kAnswer, "provisioned"},
        {"TOGGLE_CIRCLE_STATE", R"({"toggle":"on"})", dro::mutex_toggle_lock, dro::circleToggleResponse,
         dro::toggle_orders(), "CircleCfgInternal.sorbEnableStatusDROA", "enabled"},
    }};
    return all;
}
constexpr std::size_t kProvision = 1;
constexpr std::size_t kToggle = 2;

enum class When { beforeTheFirstWaits, whileItWaits, whileItReports };

// The router's state before the first order: an open activation "a-0" of a provisioned service.
struct Router {
    std::string circleUuid = "a-0";
    bool open = true;
};

// The acknowledgements of an order, including its outcome.
Texts expected(std::size_t kind, const std::string& uuid, Router& router) {
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
    // The activation's own id is not acknowledged.
    return uuid == router.circleUuid ? Texts{} : Texts{uuid + " 1 Success-Enabled"};
}

class OrderPairs : public AgentTest, public ::testing::WithParamInterface<bool> {
 protected:
    void prepare() {
        durations.circleWatch = kPatience;
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
    // The Circle agent answers all waiting monitors, one after the other.
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
        prepare();
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
            cloud.script("transactionAck/", {kStall});
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
        std::ranges::sort(got);
        std::ranges::sort(all);
        EXPECT_EQ(got, all);
    }

    std::atomic<int> handled_{0};
};

TEST_P(OrderPairs, EachHasItsOwnOutcome) {
    for (const When when : {When::beforeTheFirstWaits, When::whileItWaits, When::whileItReports}) {
        // Only one of two toggles is answered, so this pair is left out: once a toggle is over, none is outstanding.
        for (std::size_t pair = 0; pair < kinds().size() * kinds().size() - 1 && !HasFailure(); ++pair) {
            const std::size_t first = pair / kinds().size();
            const std::size_t second = pair % kinds().size();
            for (const char* uuid : {"x", "y"}) {
                SCOPED_TRACE(std::string(kinds()[first].command) + " x, " + kinds()[second].command + " " + uuid +
                             ", timing " + std::to_string(static_cast<int>(when)));
                run(first, second, uuid, when);
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
    static dro::Order order(const char* uuid) {
        dro::Place place = dro::take_place();
        EXPECT_TRUE(place) << uuid;
        return {.uuid = dro::FixedText<128>(uuid), .place = std::move(place)};
    }
};

TEST_F(OneOrder, HasItsMonitorWhenTheFlagWasAlreadyTrue) {
    store.set_all({{"DroStatus.CircleToggle", "true"}, {"DroStatus.cdilTimeout", "true"}});
    start();
    StoreSpy spy;
    spy.report_changes_only();
    dro::toggle_orders().give(order("x"));
    dro::init_fetch_cd("y", 0, "app");
    Texts got = acknowledgements(2);
    std::ranges::sort(got);
    EXPECT_EQ(got, (Texts{"x 0 Fail-Error timeout", "y 0 CDIL:Fail-Error timeout"}));
}

// There is a single place: each order also shows that the one before has released it.
TEST_F(OneOrder, IsWithdrawnWhenItsFlagCannotBeWrittenAndNotKeptWithoutACallback) {
    const Places one(1);
    dro::toggle_orders().give(order("unwatched"));
    start();
    {
        StoreSpy spy;
        spy.fail("DroStatus.CircleToggle", HAB_TIMEOUT);
        // The notice of an earlier write arrives during the order's own write.
        spy.before_write("DroStatus.CircleToggle", [this] {
            store.set("DroStatus.CircleToggle", "false");
            EXPECT_TRUE(log.wait_for("Circle Toggle callback\n"));
        });
        dro::toggle_orders().give(order("failed"));
        const FailCalls fault(Call::threadCreate, EAGAIN);
        dro::init_fetch_cd("no thread", 0, "app");
        EXPECT_TRUE(eventually([&] { return fault.failed() == 1 && active_monitors() == 0; }));
    }
    store.set_all({{"DroStatus.CircleToggle", "false"}, {"DroCfg.circle_toggle_uuid", "stored"}});
    store.set("DroStatus.CircleToggle", "true");  // written by another program
    EXPECT_EQ(acknowledgements(1), Texts{"stored 0 Fail-Error timeout"});
}

// An earlier monitor resets the flag before the notice of the next order is handled.
TEST_F(OneOrder, StartsEvenWhenItsFlagAlreadyReadsFalse) {
    start();
    static std::atomic<bool> goOn;
    goOn = false;
    dro::dal_call_on_change(
        "DALHNotifyNDN", "Index", [](void*) { eventually([] { return goOn.load(); }); }, nullptr);
    store.set("DALHNotifyNDN.Index", "1");  // delays the notices behind it
    dro::toggle_orders().give(order("x"));
    store.set("DroStatus.CircleToggle", "false");
    goOn = true;
    EXPECT_EQ(acknowledgements(1), Texts{"x 0 Fail-Error timeout"});
}

TEST_F(OneOrder, IsRefusedWithoutAPlaceBeforeItsFirstWrite) {
    store.set_all({{"DroStatus.CircleAct", "true"},
                   {"DroCfg.circle_uuid", "a"},
                   {"CircleCfg.cuuid", "c"},
                   {"CircleStatus.activationStatus", "provisioned"}});
    start();
    const Places one(1);
    dro::Place last = dro::take_place();
    const auto message = [](std::size_t kind) { return envelope("x", kinds()[kind].command, kinds()[kind].data); };
    const auto missing = [this](const std::string& flag) {
        return log.count("All 1 places for monitors and producers are taken: none for " + flag + "\n", 4);
    };
    const std::string refused = "x 0 Too many requests in progress";
    const std::string off = "DroStatus.CircleProvision=false";
    const Texts idle{off, std::string(kAnswer) + "=none", off};
    const Cases<const char*, std::string, std::string, Texts, const char*> cases{
        // value set before, message, reply, writes, flag of the missing monitor (the last replies start none)
        {"none", message(0), refused, {}, "CircleAct"},
        {"none", envelope("x", "DEACTIVATE_CIRCLE", R"({"overRide":0})"), refused, {}, "CircleAct"},
        {"none", message(kProvision), refused, {}, "CircleProvision"},
        {"none", message(kToggle), refused, {}, "CircleToggle"},
        {"enabled", message(kToggle), "x 1 Success-Enabled", {}, ""},
        {"none", envelope("a", "ACTIVATE_CIRCLE", R"({"overRide":0})"), "a 1 Already Activated", idle, ""}};
    for (const auto& [value, sent, reply, writes, flag] : cases) {
        SCOPED_TRACE(sent);
        forget();
        store.set("CircleStatus.sorbStatus", value);
        const StoreSpy spy;
        dro::JorvAgentNotification_cbHandler(sent.c_str());
        EXPECT_EQ(acknowledgements(0), Texts{reply});
        EXPECT_EQ(spy.writes(), writes);
        EXPECT_EQ(log.texts(4).size(), *flag != '\0' ? 1U : 0U);
        EXPECT_EQ(log.texts(4).size(), missing(flag));
    }
    const StoreSpy spy;
    dro::init_fetch_cd("x", 0, "app");
    EXPECT_EQ(spy.writes("DroStatus.cdilT"),
              (Texts{"DroStatus.cdilTimeout=true", "DroStatus.cdilTimeout=false", "DroStatus.cdilTransUuid=x"}));
    EXPECT_EQ(spy.writes().back(), "DALHConfig.ProcessID=1");
    EXPECT_EQ(missing("cdilTimeout"), 1U);
    for (const char* flag : {"CircleAct", "CircleProvision", "CircleToggle", "cdilTimeout"}) {  // by another program
        log.forget();
        store.set(std::string("DroStatus.") + flag, "true");
        EXPECT_TRUE(store.wait_for(std::string("DroStatus.") + flag, "false"));
        EXPECT_EQ(missing(flag), 1U);
    }
    EXPECT_EQ(active_monitors(), 0);
    cloud.forget();
    last.reset();
    dro::JorvAgentNotification_cbHandler(message(kToggle).c_str());
    EXPECT_EQ(acknowledgements(1), Texts{"x 0 Fail-Error timeout"});
    EXPECT_TRUE(eventually([] { return dro::take_place() != nullptr; }));
}

// ---- Lists ----

using Fetches = AgentTest;

TEST_F(Fetches, AListWakesOnlyTheWatchesOfItsTransaction) {
    durations.listWatch = durations.circleWatch = kPatience;
    dro::set_durations(durations);
    store.set_all({{"DroStatus.cdilSupport", "true"},
                   {"DroStatus.dispatcherSupport", "true"},
                   {"DALHNotifyCDIL.IndexBitMask0", "1"},
                   {"DALHNotifyCDIL.TotalIndexcount", "1"},
                   {"RADebugLog.cdilDebugStatus", "success"}});
    dro::circle_cb_subscription();
    dro::init_devToCld_push_sync();
    const auto fetch = [](const char* uuid, int waiting) {
        dro::init_fetch_cd(uuid, 0, "app");
        EXPECT_TRUE(eventually([&] { return waiters(dro::timeoutResponse) == waiting; }));
    };
    const auto complete_list = [this] { store.set("DALHNotifyCDIL.CDILstatus", "complete"); };
    const auto watches_end = [](int left) { return eventually([left] { return dro::list_orders().alive() == left; }); };
    store.set("DroStatus.CircleAct", "true");
    ASSERT_TRUE(eventually([] { return waiters(dro::activationResponse) == 1; }));
    fetch("one", 1);
    EXPECT_EQ(store.get("RADebugLog.cdilDebugStatus"), "none") << "a result left by an earlier list";
    fetch("two", 2);
    fetch("two", 3);
    complete_list();
    ASSERT_TRUE(watches_end(1)) << "both watches of the second transaction";
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

}  // namespace
}  // namespace dro_test

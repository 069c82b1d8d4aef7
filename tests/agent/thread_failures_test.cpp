// A thread that cannot be started ends the process, so that whoever watches over the agent starts it afresh.
#include <cerrno>

#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_dispatcher.h"
#include "dro_dtn.h"
#include "dro_ndn.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class ThreadFailures : public AgentTest {};

TEST_F(ThreadFailures, EndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char* flag : {"cdilSupport", "dispatcherSupport", "CircleAct", "CircleProvision", "CircleToggle"}) {
        store.set(std::string("DroStatus.") + flag, "true");
    }
    store.set_all({{"DALHNotifyDTN.Index", "1"}, {"DALHNotifyCDUPDATE.IndexCD", "1"}});
    const auto expect = [](void (*start)(), const std::string& said) {
        const auto fail = [start] {
            const FailCalls fault(Call::threadCreate, EAGAIN);
            start();
        };
        EXPECT_EXIT(fail(), ::testing::ExitedWithCode(1), "^" + said) << said;
    };
    expect([] { dro::ndnIndex_cbHandler(nullptr); }, "Failed to initialize Thread for ndnSync\n: ");
    expect([] { dro::dtnIndex_cbHandler(nullptr); }, "Failed to initialize DTN Sync thread to enqueue fifo\n: ");
    expect([] { dro::cdUpdate_cbHandler(nullptr); }, "");
    expect([] { dro::cdilStatus_cbHandler(nullptr); }, "Error:: ");
    expect([] { dro::circleAct_cbHandler(nullptr); }, "Failed to initialize Thread for CircleAct\n: ");
    expect([] { dro::circleProvision_cbHandler(nullptr); }, "Failed to initialize Thread for CircleProvision\n: ");
    expect([] { dro::circleToggle_cbHandler(nullptr); }, "Failed to initialize Thread for CircleAct\n: ");
    expect([] { dro::init_dispatcher(); }, "Failed to initialize DROAgent's Dispatcher\n: ");
}

}  // namespace
}  // namespace dro_test

// A thread that cannot be started ends the process, so that whoever watches over the agent starts it afresh.
#include <cerrno>

#include "dro_bst.h"
#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_dispatcher.h"
#include "dro_dtn.h"
#include "dro_ndn.h"
#include "faults.h"
#include "pipeline.h"

namespace dro_test {
namespace {

class ThreadFailures : public PipelineTest {
 protected:
    ThreadFailures() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(ThreadFailures, EndTheProcess) {
    struct Case {
        void (*start)();
        const char* said;  // on standard error
    };
    store.set_all({{"DALHNotifyDTN.Index", "1"},
                   {"DALHNotifyCDUPDATE.IndexCD", "1"},
                   {"DroStatus.cdilSupport", "true"},
                   {"DroStatus.CircleAct", "true"},
                   {"DroStatus.CircleProvision", "true"},
                   {"DroStatus.CircleToggle", "true"},
                   {"DroStatus.dispatcherSupport", "true"}});
    for (const Case& c :
         {Case{[] { dro::ndnIndex_cbHandler(nullptr); }, "Failed to initialize Thread for ndnSync\n: "},
          {[] { dro::dtnIndex_cbHandler(nullptr); }, "Failed to initialize DTN Sync thread to enqueue fifo\n: "},
          {[] { dro::cdUpdate_cbHandler(nullptr); }, ""},
          {[] { dro::cdilStatus_cbHandler(nullptr); }, "Error:: "},
          {[] { dro::circleAct_cbHandler(nullptr); }, "Failed to initialize Thread for CircleAct\n: "},
          {[] { dro::circleProvision_cbHandler(nullptr); }, "Failed to initialize Thread for CircleProvision\n: "},
          {[] { dro::circleToggle_cbHandler(nullptr); }, "Failed to initialize Thread for CircleAct\n: "},
          {[] { dro::init_dispatcher(); }, "Failed to initialize DROAgent's Dispatcher\n: "}}) {
        EXPECT_EXIT(
            {
                const FailCalls fault(Call::threadCreate, EAGAIN);
                c.start();
            },
            ::testing::ExitedWithCode(1), std::string("^") + c.said)
            << c.said;
    }
}

}  // namespace
}  // namespace dro_test

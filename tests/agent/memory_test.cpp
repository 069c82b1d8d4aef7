// Memory that runs out while JSON is read or made: at each single allocation in turn, whatever is at work goes on or
// gives up with its line, and the next attempt is whole again.
#include <cJSON.h>

#include <cstdlib>
#include <functional>
#include <utility>

#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_get_set_config.h"
#include "dro_ndn.h"
#include "pipeline.h"

namespace dro_test {
namespace {

int g_left = 0;  // allocations until one fails; below zero: it has failed

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

    // What was queued and what was sent.
    Texts made() {
        Texts texts = dro::isQueueEmpty() ? Texts{} : Texts{take_payload()};
        for (const Request& request : cloud.requests()) {
            texts.push_back(request.body);
        }
        cloud.forget();
        return texts;
    }
};

TEST_F(ScarceMemory, IsReportedAndNoHalfTextLeaves) {
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
        EXPECT_EQ(made().size(), 1U) << "what is whole";
        for (const std::string& text : said) {
            EXPECT_TRUE(log.has(text, 4)) << text;
        }
    }
}

}  // namespace
}  // namespace dro_test

#include "dro_bst.h"

#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_log.h"
#include "dro_utils_token.h"

namespace dro {
namespace {

constexpr const char* kResults = "BSTResults";
constexpr std::size_t kPayloadSize = 256;

// Read in full, then truncated to fit the report: a read into a shorter buffer would fail.
constexpr std::size_t kLongestStoredIsp = 256;

}  // namespace

int init_BST_dal_sub() {
    read_enum<32>(fields::BSTStatus);
    LOG_TRACE("Starting BST  Thread!\n");
    LOG_NOTICE("Registering Callback on BST Support Data Object!\n");
    on_change(fields::BSTStatus, bstStatus_cbHandler);
    return 0;
}

void bstStatus_cbHandler(void* /*context*/) {
    make_request_token();  // called only for its trace of the time
    const auto status = read_enum<32>(fields::BSTStatus);
    LOG_NOTICE("BST Status Value : %s\n", status.c_str());
    if (status != "Complete") {
        LOG_TRACE("Invalid Value to sync!\n");
        return;
    }
    const RequestToken request = make_request_token();  // a new time stamp for the report
    const auto uplink = static_cast<int>(read_uint({kResults, "UplinkSpeed"}));
    const auto downlink = static_cast<int>(read_uint({kResults, "Downlinkspeed"}));
    const auto server = static_cast<int>(read_uint({kResults, "ServerId"}));
    const auto latency = static_cast<int>(read_uint({kResults, "Latency"}));
    const FixedText<32> isp(read_ascii<kLongestStoredIsp>({kResults, "ISP"}).view());
    FixedText<kPayloadSize> payload;
    payload.format(
        "{\"isp\":\"%s\", \"ul\":\"%d\", \"dl\":\"%d\", \"serverId\":\"%d\", \"latency\":\"%d\", "
        "\"timestamp\":\"%s\" }",
        isp.c_str(), uplink, downlink, server, latency, request.timestamp.c_str());
    if (enqueue_buf({"B", payload.c_str()}) != 0) {
        LOG_TRACE("BST payload Published successfully\n");
    } else {
        LOG_ERROR("BST publishing failed ,EXITING THREAD\n");
    }
}

}  // namespace dro

// The cloud's answers: the first text of the input is passed to every response handler, then all texts to a
// registration.
#include "agent.h"
#include "dro_circle.h"
#include "dro_generic_cloud_push.h"
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_push.h"
#include "dro_json.h"
#include "dro_pushst_cloud.h"
#include "dro_reg.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Store& store = fuzz::fresh_agent();
    const std::vector<std::string> answers = fuzz::texts(fuzz::bytes(data, size));
    const char* first = answers.front().c_str();
    const int verdict = dro::processTransAckApiResponse(first);
    for (const auto judge : {dro::processSyncCDResponse, dro::processCircleSync, dro::processGenericApiResponse,
                             dro::processpushdataApiResponse}) {
        fuzz::require(judge(first) == verdict);
    }
    const dro::Json parsed(cJSON_Parse(first));
    const cJSON* status = dro::json_member(parsed.get(), "status");
    fuzz::require((status == nullptr) == (verdict == 1));
    // A refused answer never registers the router. An accepted one may still lack a member.
    const int taken = dro::processsRegisterResponse(first);
    fuzz::require(taken == -1 || (status != nullptr && status->valueint != 0));

    for (const std::string& answer : answers) {
        fuzz::answer_next(answer);
    }
    dro::registerDroCloud();
    // The first accepted answer of three completes the registration. The timer thread that it starts does not run here.
    const bool registered = store.get("DROStatus.addJorvdeviceIdDone") == "true";
    fuzz::require(registered || taken != 0);
    fuzz::require(fuzz::started_threads().size() <= 4);
    return 0;
}

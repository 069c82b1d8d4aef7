// dro_durations.h - the agent's pauses and deadlines, which droagent-quick and the tests shorten. The limits of a
// transfer are in dro_utils_post.h, the link's in libJorvhdlr.h.
#pragma once

#include <chrono>

namespace dro {

struct Durations {
    std::chrono::milliseconds retryPause{5'000};    // between attempts at a request, and at opening the link
    std::chrono::milliseconds listWatch{20'000};    // for a requested device list to reach the cloud
    std::chrono::milliseconds circleWatch{75'000};  // for the Circle agent's answer
    std::chrono::milliseconds unknownEvent{1'000};  // until an event of unknown type is looked at again
    std::chrono::microseconds queuePause{500};      // between storing an event and marking it
};

// The durations in force. Set before any thread starts, only read afterwards.
const Durations& durations();
void set_durations(const Durations& values);

}  // namespace dro

// dro_durations.h - the agent's pauses and deadlines, shortened by droagent-quick and the tests. The limits of a
// transfer are in dro_utils_post.h, those of the link in libJorvhdlr.h.
#pragma once

#include <chrono>

namespace dro {

struct Durations {
    std::chrono::milliseconds retryPause{5'000};    // between attempts of a request, and of opening the link
    std::chrono::milliseconds listWatch{20'000};    // for a requested device list to reach the cloud
    std::chrono::milliseconds circleWatch{75'000};  // for the Circle agent's answer
    std::chrono::milliseconds unknownEvent{1'000};  // before an event of unknown type is handled again
    std::chrono::microseconds queuePause{500};      // between storing an event and marking it
};

// The current durations. Set before any thread starts, read-only afterwards.
const Durations& durations();
void set_durations(const Durations& values);

}  // namespace dro

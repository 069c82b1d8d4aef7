// up.h - `drolab up`: the lab in the foreground, as a live timeline.
#pragma once

#include "lab.h"

namespace lab {

struct UpSettings {
    LabSettings lab;
    bool json = false;
    int webPort = 0;  // of the page; 0 for none
};

// Runs until SIGINT or SIGTERM, or until the agent ends by itself. Returns the exit status: 0, or 1 when the lab could
// not start or the agent ended otherwise than asked. To be called before any thread is started.
int runUp(const UpSettings& settings);

}  // namespace lab

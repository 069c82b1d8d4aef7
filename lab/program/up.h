// up.h - `drolab up`: runs the lab in the foreground and shows a live timeline.
#pragma once

#include "lab.h"

namespace lab {

struct UpSettings {
    LabSettings lab;
    bool json = false;
    int webPort = 0;  // of the web page; 0 for none
};

// Runs until SIGINT, SIGTERM or the agent's exit. Returns the exit status: 0, or 1 when the lab cannot start or the
// agent exits by itself or with an error. Call it before any thread starts.
int runUp(const UpSettings& settings);

}  // namespace lab

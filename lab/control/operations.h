// operations.h - what can be done to a running lab, by name and with arguments as JSON texts. Any thread.
#pragma once

#include <string>

#include "lab.h"

namespace lab {

struct Reply {
    bool ok = false;
    std::string text;  // for a person; may have several lines
};

// Does it and says how it went; an operation or an argument that is not known is an answer too. Never throws.
//
//   status                       send {command, data, device, timeoutMs}   device {action, name}
//   devices {count}              cloud {mood, value}                       claim {value}
//   sync-time {value}            circle {action, value, state}             speedtest {down, up, kind}
//   service {mood, value}
Reply perform(Lab& lab, const std::string& operation, const Json& arguments);

}  // namespace lab

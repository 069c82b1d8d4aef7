// operations.h - the operations on a running lab, by name with JSON arguments. Any thread may call it.
#pragma once

#include <string>

#include "lab.h"

namespace lab {

struct Reply {
    bool ok = false;
    std::string text;  // for the user; may have several lines
};

// Runs an operation and returns its result. An unknown operation or invalid argument returns ok = false. Never throws.
//
//   status                       send {command, data, device, timeoutMs}   device {action, name}
//   devices {count}              cloud {mood, value}                       claim {value}
//   sync-time {value}            circle {action, value, state}             speedtest {down, up, kind}
//   service {mood, value}
Reply perform(Lab& lab, const std::string& operation, const Json& arguments);

}  // namespace lab

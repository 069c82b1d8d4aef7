// process.h - the processes of the program. A check runs in a process of its own, so that a hang or a crash of the
// library fails only that check. The main process never calls the library. Main thread only.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "check.h"

namespace habconform {

// The command line, the same in every process.
struct Options {
    std::vector<std::string> words;
    std::vector<Place> scratch;
    std::vector<std::string> only;  // names of checks; all when empty
    bool stress = false;
    bool readOnly = false;
    bool json = false;
    std::string role;  // of a child process: "save", "restore", "writer" or the name of a check
};
Options& options();
std::vector<Check> allChecks();

// Starts this program in a role, with a socket to it.
struct Child {
    pid_t id;
    int socket;
};
Child startChild(const std::string& role);

// Runs the role of options() in this process. Returns the exit status.
int runRole();

// Reports details of a check that may crash before it returns.
void state(const std::string& details);

struct Outcome {
    enum Result : char { holds = 'h', fails = 'f', skipped = 's', stopped = 'x' } result;
    std::string details;
};
// Runs a role with `input` and waits for its report, at most `limit`; then kills its process group. Returns `stopped`
// after SIGINT, SIGTERM or SIGHUP, except in the role "restore".
Outcome runChild(const std::string& role, const std::string& input = "", std::chrono::seconds limit = kLimit);

// The values in a report of the role "save", which is also the input of "restore".
using SavedValues = std::vector<std::pair<Place, std::string>>;
SavedValues savedValues(const std::string& report);

// Makes SIGINT, SIGTERM and SIGHUP stop runChild.
void catchSignals();
bool interrupted();

}  // namespace habconform

// habconform - checks on the target that a platform's libraries have the properties that the agent relies on.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "agent_process.h"
#include "process.h"

namespace habconform {

namespace {

enum Status { allHold = 0, someFail = 1, notRun = 2 };

constexpr const char* kHelp =
    R"(habconform [OPTION...] - checks that libhablib and libhabdynlog have the properties that droagent relies on

  --read-only                  Write nothing, and leave out the checks that write
  --scratch TABLE.FIELD[@ROW]  Write this field as well; may be repeated
  --stress                     Write 10,000 values as well; flash memory wears
  --only NAME[,NAME...]        Run only these checks
  --json                       Print one JSON object a line
  --help                       Print this help

Writes only fields that only the agent writes, and restores them. Does not run beside the agent.
Exit status: 0 when all properties hold, 1 when some do not, 2 when the checks could not run.
)";

// Escapes text from the store or the library so that it is printable, and in JSON also ASCII.
std::string escaped(const std::string& text) {
    std::string shown;
    for (const char byte : text) {
        const auto number = static_cast<unsigned char>(byte);
        const bool isPlain = number >= ' ' && number != 0x7F && byte != '\\';
        std::array<char, 8> code{byte};
        if (!isPlain || (options().json && (number > 0x7F || byte == '"'))) {
            std::snprintf(code.data(), code.size(), options().json ? "\\u%04x" : "\\x%02x", number);
        }
        shown += code.data();
    }
    return shown;
}

std::string quoted(const std::string& text) {
    return '"' + escaped(text) + '"';
}

void print(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

int refuse(const std::string& problem) {
    std::fprintf(stderr, "habconform: %s\n", problem.c_str());
    return notRun;
}

// Prints the fields that will be written, with their saved values.
void printPlan(const SavedValues& saved) {
    std::string json;
    std::string lines = saved.empty() ? "Writes nothing." : "Writes these fields, and restores their values:";
    for (const auto& [place, value] : saved) {
        json += (json.empty() ? "" : ", ") + quoted(textOf(place)) + ": " + quoted(value);
        lines += "\n    " + textOf(place) + " = " + escaped(value);
    }
    print(options().json ? "{\"version\": \"" HABCONFORM_VERSION "\", \"writes\": {" + json + "}}" : lines);
}

void printCheck(const Check& check, const Outcome& outcome, bool failed) {
    const std::string result = outcome.result == Outcome::skipped  ? "skipped"
                               : (check.kind & Check::stated) != 0 ? "stated"
                               : failed                            ? "fails"
                                                                   : "holds";
    const auto end = std::min(outcome.details.find(kMembers), outcome.details.size());
    const std::string details = outcome.details.substr(0, end);
    if (options().json) {
        print("{\"check\": " + quoted(check.name) + ", \"result\": " + quoted(result) +
              ", \"property\": " + quoted(check.property) + ", \"found\": " + quoted(details) +
              (failed ? ", \"consequence\": " + quoted(check.consequence) : "") +
              (details == outcome.details ? "" : ", " + outcome.details.substr(end + 1)) + "}");
        return;
    }
    std::array<char, 32> start{};
    std::snprintf(start.data(), start.size(), "%-8s %-17s", failed ? "FAILS" : result.c_str(), check.name);
    print(start.data() + std::string(check.property) + (details.empty() ? "" : ": ") + escaped(details) +
          (failed ? std::string(". The agent: ") + check.consequence : ""));
}

// Returns the reason why no check may run now, or an empty text.
std::string obstacle() {
    const tools::AgentProcess agent = tools::agentProcess();
    if (agent.state == tools::AgentProcess::running) {
        return "the agent runs, pid " + std::to_string(agent.id) + "; stop it first";
    }
    if (agent.state == tools::AgentProcess::unreadable) {
        return std::string(tools::kPidFile) + ": " + std::strerror(agent.error);
    }
    return interrupted() ? "interrupted" : "";
}

// Returns the reason why the options exclude a check, or an empty text.
std::string reasonToSkip(const Check& check) {
    if ((check.kind & Check::writes) != 0 && options().readOnly) {
        return "it writes";
    }
    return (check.kind & Check::stress) != 0 && !options().stress ? "only with --stress" : "";
}

Outcome runCheck(const Check& check) {
    constexpr int kStressFactor = 20;
    if (const std::string reason = reasonToSkip(check); !reason.empty()) {
        return {Outcome::skipped, reason};
    }
    return runChild(check.name, "", kLimit * ((check.kind & Check::stress) != 0 ? kStressFactor : 1));
}

// Runs the selected checks. Returns the exit status.
int runChecks(const std::string& saved) {
    int held = 0;
    int failed = 0;
    int skipped = 0;
    std::string problem;
    for (const Check& check : allChecks()) {
        const auto& only = options().only;
        if (!only.empty() && std::find(only.begin(), only.end(), check.name) == only.end()) {
            continue;
        }
        problem = obstacle();
        const Outcome outcome = problem.empty() ? runCheck(check) : Outcome{Outcome::stopped, ""};
        if (outcome.result == Outcome::stopped) {
            problem = problem.empty() ? "interrupted" : problem;
            break;
        }
        const bool judged = (check.kind & Check::stated) == 0;
        const bool fails = judged && outcome.result == Outcome::fails;
        printCheck(check, outcome, fails);
        (outcome.result == Outcome::skipped ? skipped : fails ? failed : held) += judged ? 1 : 0;
    }
    std::array<char, 64> counts{};
    std::snprintf(counts.data(), counts.size(),
                  options().json ? R"({"hold": %d, "fail": %d, "skipped": %d})" : "%d hold, %d fail, %d skipped", held,
                  failed, skipped);
    print(counts.data());
    if (const Outcome restored = runChild("restore", saved); restored.result != Outcome::holds) {
        problem += (problem.empty() ? "" : "; ") + restored.details;
    }
    return !problem.empty() ? refuse(problem) : failed == 0 ? allHold : someFail;
}

int run() {
    catchSignals();
    if (const std::string problem = obstacle(); !problem.empty()) {
        return refuse(problem);
    }
    const Outcome saved = runChild("save");
    if (saved.result != Outcome::holds) {
        return refuse("the store cannot be used: " + saved.details);
    }
    printPlan(savedValues(saved.details));
    return runChecks(saved.details);
}

// Adds the checks of --only. Throws std::runtime_error for an unknown name.
void addNames(const std::string& list) {
    const std::vector<Check> all = allChecks();
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
        if (std::none_of(all.begin(), all.end(), [&name](const Check& check) { return name == check.name; })) {
            throw std::runtime_error("there is no check '" + name + "'");
        }
        options().only.push_back(name);
    }
}

// Throws std::runtime_error.
void readCommandLine(const std::vector<std::string>& words) {
    Options& given = options();
    given.words = words;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const auto value = [&] {
            return ++i < words.size() ? words[i] : throw std::runtime_error("a value is missing");
        };
        const std::string& word = words[i];
        if (word == "--read-only") {
            given.readOnly = true;
        } else if (word == "--stress") {
            given.stress = true;
        } else if (word == "--json") {
            given.json = true;
        } else if (word == "--scratch") {
            given.scratch.push_back(writablePlace(value()));
        } else if (word == "--only") {
            addNames(value());
        } else if (word == "--role") {
            given.role = value();
        } else if (word == "--help") {
            std::fputs(kHelp, stdout);
            std::exit(allHold);
        } else {
            throw std::runtime_error("unknown option '" + word + "'; see --help");
        }
    }
}

}  // namespace

}  // namespace habconform

int main(int argc, char** argv) {
    try {
        habconform::readCommandLine({argv, argv + argc});
        if (!habconform::options().role.empty()) {
            _exit(habconform::runRole());  // threads of the library may still run
        }
        return habconform::run();
    } catch (const std::exception& problem) {
        return habconform::refuse(problem.what());
    }
}

// roads [--json FILE] [--idle SECONDS] [--only ROAD] - times complete paths of the agent and of minimal code that does
// the same work. Runs in its own namespaces; bench/run sets them up.
#include "roads.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Road {
    const char* name;
    std::function<void(bench::Report&)> measure;
};

std::vector<Road> all_roads(std::chrono::seconds idle) {
    return {{"post", bench::measure_post},
            {"start", bench::measure_start},
            {"record", bench::measure_record},
            {"block", bench::measure_block},
            {"events", bench::measure_events},
            {"lists", bench::measure_lists},
            {"queue", bench::measure_queue},
            {"commands", bench::measure_commands},
            {"lists-at-once", bench::measure_lists_at_once},
            {"circle", bench::measure_circle},
            {"registration", bench::measure_registration},
            {"idle", [idle](bench::Report& report) { bench::measure_idle(report, idle); }}};
}

void write_results(const std::string& file, const bench::Report& report) {
    if (!file.empty() && !(std::ofstream(file) << report.json() << std::endl)) {
        throw std::runtime_error("cannot write " + file);
    }
}

// Measures the roads that were asked for, all without one, and writes after each what is there; the number that failed.
int measure(const std::vector<Road>& roads, const std::vector<std::string>& only, const std::string& file) {
    bench::Report report;
    int failures = 0;
    for (const Road& road : roads) {
        if (!only.empty() && std::find(only.begin(), only.end(), road.name) == only.end()) {
            continue;
        }
        try {
            road.measure(report);
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s: %s\n", road.name, failure.what());
            ++failures;
        }
        write_results(file, report);
    }
    return failures;
}

int run(int argc, char** argv) {
    CLI::App app("Measures whole roads of the agent");
    std::string file;
    long idle = 60;
    std::vector<std::string> only;
    app.add_option("--json", file, "Where the results go, as JSON");
    app.add_option("--idle", idle, "Seconds for which the idle agent is watched")->check(CLI::PositiveNumber);
    app.add_option("--only", only, "Roads to measure instead of all");
    CLI11_PARSE(app, argc, argv);
    return measure(all_roads(std::chrono::seconds(idle)), only, file) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}

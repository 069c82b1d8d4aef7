// paths [--json FILE] [--idle SECONDS] [--only PATH] - times complete paths of the agent and of minimal code that does
// the same work. Runs in its own namespaces; bench/run sets them up.
#include "paths.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Path {
    const char* name;
    std::function<void(bench::Report&)> measure;
};

std::vector<Path> all_paths(std::chrono::seconds idle) {
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

// Measures the paths named in `only`, or all when it is empty. Writes the results after each path. Returns how many
// paths failed.
int measure(const std::vector<Path>& paths, const std::vector<std::string>& only, const std::string& file) {
    bench::Report report;
    int failures = 0;
    for (const Path& path : paths) {
        if (!only.empty() && std::find(only.begin(), only.end(), path.name) == only.end()) {
            continue;
        }
        try {
            path.measure(report);
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s: %s\n", path.name, failure.what());
            ++failures;
        }
        write_results(file, report);
    }
    return failures;
}

int run(int argc, char** argv) {
    CLI::App app("Measures complete paths of the agent");
    std::string file;
    long idle = 60;
    std::vector<std::string> only;
    app.add_option("--json", file, "Write the results to this file, as JSON");
    app.add_option("--idle", idle, "Seconds to observe the idle agent")->check(CLI::PositiveNumber);
    app.add_option("--only", only, "Paths to measure instead of all");
    CLI11_PARSE(app, argc, argv);
    return measure(all_paths(std::chrono::seconds(idle)), only, file) == 0 ? 0 : 1;
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

// drolab - the command line of the lab.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "commands.h"
#include "control.h"
#include "json.h"
#include "tour.h"
#include "up.h"
#include "web.h"

namespace {

constexpr int kWrongUsage = 64;

int tellReply(const lab::Reply& reply) {
    std::fprintf(reply.ok ? stdout : stderr, "%s\n", reply.text.c_str());
    return reply.ok ? 0 : 1;
}

// The requested action: filled in by the parser, run afterwards.
struct Request {
    std::function<int()> act;
    lab::Json arguments = lab::Json::object();

    void ask(const std::string& operation) {
        act = [this, operation] { return tellReply(lab::askLab(operation, arguments)); };
    }
};

std::string commandNames() {
    std::string names;
    for (const auto& command : lab::commands()) {
        names += (names.empty() ? "" : ", ") + std::string(command.name);
    }
    return names;
}

void addUp(CLI::App& app, Request& request) {
    auto* up = app.add_subcommand("up", "Run the store, cloud, services and agent, and show events until Ctrl-C");
    up->footer("Example: drolab up --devices 30 --web");
    const auto settings = std::make_shared<lab::UpSettings>();
    up->add_option("--store", settings->lab.storePath, "Store file to create and keep (default: a temporary file)");
    up->add_option("--devices", settings->lab.devices, "Devices on the network")->check(CLI::Range(0, lab::kRows));
    up->add_flag("--verbose", settings->lab.verbose, "Show the agent's log lines too");
    up->add_flag("--json", settings->json, "Print one JSON object per line");
    up->add_option("--web", settings->webPort, "Also serve a web page on this port of 127.0.0.1")
        ->expected(0, 1)
        ->default_str(std::to_string(lab::kWebPort))
        ->check(CLI::Range(1024, 65535));
    up->callback([&request, settings] { request.act = [settings] { return lab::runUp(*settings); }; });
}

void addTour(CLI::App& app, Request& request) {
    auto* tour = app.add_subcommand("tour", "Show the agent from boot to shutdown, each step checked");
    tour->footer("Example: drolab tour --only commands,circle");
    const auto settings = std::make_shared<lab::TourSettings>();
    tour->add_flag("--list", settings->list, "List the chapters and exit");
    tour->add_option("--only", settings->only, "Chapters to run")->delimiter(',');
    tour->add_flag("--full", settings->full, "Run the shipped agent with its full time-outs");
    tour->add_option("--timeline", settings->timelineFile, "Write the timeline to this file, one JSON object per line");
    tour->callback([&request, settings] { request.act = [settings] { return lab::runTour(*settings); }; });
}

void addSend(CLI::App& app, Request& request) {
    auto* send = app.add_subcommand("send", "Send a cloud command and wait for the result");
    send->footer(
        "Commands: " + commandNames() +
        "\nWithout DATA, sends the command's example data.\nExample: drolab send BLOCK_CD --device \"Anna's phone\"");
    struct Options {
        std::string command;
        std::string data;
        std::string device;
        double timeout = 20;
    };
    const auto options = std::make_shared<Options>();
    send->add_option("CMD", options->command, "The command's name")->required();
    send->add_option("DATA", options->data, "Its data, as JSON");
    send->add_option("--device", options->device, "Device whose MAC is set as cdMac in the data");
    send->add_option("--timeout", options->timeout, "Seconds to wait for the answer")->check(CLI::Range(0.1, 500.0));
    send->callback([&request, options] {
        request.arguments["command"] = options->command;
        request.arguments["data"] = options->data;
        request.arguments["device"] = options->device;
        request.arguments["timeoutMs"] = static_cast<std::int64_t>(options->timeout * 1000);
        request.ask("send");
    });
}

// A subcommand with positional words. Each word becomes a text argument of the operation.
struct Words {
    const char* name;
    const char* about;
    const char* example;
    std::vector<std::pair<const char*, const char*>> required;
    std::vector<std::pair<const char*, const char*>> optional;
};

void addWords(CLI::App& app, Request& request, const Words& words) {
    auto* command = app.add_subcommand(words.name, words.about);
    command->footer(std::string("Example: ") + words.example);
    const auto values = std::make_shared<std::map<std::string, std::string>>();
    for (const auto& [name, about] : words.required) {
        command->add_option(name, (*values)[name], about)->required();
    }
    for (const auto& [name, about] : words.optional) {
        command->add_option(name, (*values)[name], about);
    }
    command->callback([&request, values, operation = std::string(words.name)] {
        for (const auto& [name, value] : *values) {
            request.arguments[name] = value;
        }
        request.ask(operation);
    });
}

// Operations on a running lab, except send.
const std::vector<Words>& acts() {
    static const std::vector<Words> kActs{
        {
            .name = "status",
            .about = "Show the status of the running lab",
            .example = "drolab status",
            .required = {},
            .optional = {},
        },
        {
            .name = "device",
            .about = "Simulate a device event",
            .example = "drolab device join \"Guest phone\"",
            .required = {{"action", "join, online, offline or update"}, {"name", "The device's name or MAC"}},
            .optional = {},
        },
        {
            .name = "devices",
            .about = "Set the number of devices on the network",
            .example = "drolab devices 40",
            .required = {{"count", "0 to 256"}},
            .optional = {},
        },
        {
            .name = "cloud",
            .about = "Set how the cloud answers",
            .example = "drolab cloud refuse 2 (refuses twice), drolab cloud slow 500",
            .required = {{"mood", "up, down, refuse, stall, slow, error, empty, garbage or close"}},
            .optional = {{"value", "For slow: milliseconds; otherwise the number of answers (default: all)"}},
        },
        {
            .name = "claim",
            .about = "Set the claim state in registration answers; the router registers again",
            .example = "drolab claim false",
            .required = {{"value", "true or false"}},
            .optional = {},
        },
        {
            .name = "sync-time",
            .about = "Set the daily sync time (UTC) in registration answers; the router registers again",
            .example = "drolab sync-time 02:30:00",
            .required = {{"value", "HH:MM:SS or null"}},
            .optional = {},
        },
        {
            .name = "circle",
            .about = "Set how the Circle agent answers, or send a health report",
            .example =
                "drolab circle fail \"no licence\", drolab circle delay 500, drolab circle health client connected",
            .required = {{"action", "success, fail, silent, delay or health"}},
            .optional =
                {{"value",
                  "For fail: the error text; for delay: milliseconds; for health: running, provisioned or client"},
                 {"state", "For health: true or false, or the client's status"}},
        },
        {
            .name = "speedtest",
            .about = "Simulate a finished background speed test",
            .example = "drolab speedtest 300 40 manual",
            .required = {},
            .optional = {{"down", "Downlink speed"}, {"up", "Uplink speed"}, {"kind", "scheduled (default) or manual"}},
        },
        {
            .name = "service",
            .about = "Set how the device service handles requests",
            .example = "drolab service slow 3000",
            .required = {{"mood", "ok, silent, wrong or slow"}},
            .optional = {{"value", "For slow: milliseconds"}},
        },
    };
    return kActs;
}

void addAll(CLI::App& app, Request& request) {
    addUp(app, request);
    addTour(app, request);
    addSend(app, request);
    for (const auto& act : acts()) {
        addWords(app, request, act);
    }
}

int run(int count, char** arguments) {
    CLI::App app("The lab around the agent: a simulated router and cloud.", "drolab");
    app.require_subcommand(1);
    Request request;
    addAll(app, request);
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? 0 : kWrongUsage;
    }
    return request.act();
}

}  // namespace

int main(int count, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(count, arguments);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "drolab: %s\n", problem.what());
    } catch (...) {
        std::fputs("drolab: failed\n", stderr);
    }
    return 1;
}

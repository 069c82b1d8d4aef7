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
    auto* up = app.add_subcommand("up", "Start store, cloud, services and agent, and show what happens until Ctrl-C");
    up->footer("Example: drolab up --devices 30 --web");
    const auto settings = std::make_shared<lab::UpSettings>();
    up->add_option("--store", settings->lab.storePath,
                   "Store file to make, kept at the end (default: a temporary one)");
    up->add_option("--devices", settings->lab.devices, "Devices on the network")->check(CLI::Range(0, lab::kRows));
    up->add_flag("--verbose", settings->lab.verbose, "Show the agent's log lines too");
    up->add_flag("--json", settings->json, "One JSON object a line");
    up->add_option("--web", settings->webPort, "Show it as a page too, on this port of 127.0.0.1")
        ->expected(0, 1)
        ->default_str(std::to_string(lab::kWebPort))
        ->check(CLI::Range(1024, 65535));
    up->callback([&request, settings] { request.act = [settings] { return lab::runUp(*settings); }; });
}

void addTour(CLI::App& app, Request& request) {
    auto* tour = app.add_subcommand("tour", "Show the agent from boot to shutdown, each step checked");
    tour->footer("Example: drolab tour --only commands,circle");
    const auto settings = std::make_shared<lab::TourSettings>();
    tour->add_flag("--list", settings->list, "Name the chapters and end");
    tour->add_option("--only", settings->only, "Chapters to show")->delimiter(',');
    tour->add_flag("--full", settings->full, "Wait out the long waits with the agent that ships");
    tour->add_option("--timeline", settings->timelineFile,
                     "Write all that happened to this file, one JSON object a line");
    tour->callback([&request, settings] { request.act = [settings] { return lab::runTour(*settings); }; });
}

void addSend(CLI::App& app, Request& request) {
    auto* send = app.add_subcommand("send", "Deliver a cloud command and wait for its success");
    send->footer("Commands: " + commandNames() +
                 "\nWithout DATA an example is sent.\nExample: drolab send BLOCK_CD --device \"Anna's phone\"");
    struct Options {
        std::string command;
        std::string data;
        std::string device;
        double timeout = 20;
    };
    const auto options = std::make_shared<Options>();
    send->add_option("CMD", options->command, "The command's name")->required();
    send->add_option("DATA", options->data, "Its data, as JSON");
    send->add_option("--device", options->device, "A device whose MAC is put into the data as cdMac");
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
            .about = "Say how the running lab stands",
            .example = "drolab status",
            .required = {},
            .optional = {},
        },
        {
            .name = "device",
            .about = "Let something happen to a device",
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
            .about = "Tell the cloud how to answer",
            .example = "drolab cloud refuse 2 (refuses twice), drolab cloud slow 500",
            .required = {{"mood", "up, down, refuse, stall, slow, error, empty, garbage or close"}},
            .optional = {{"value", "For slow: milliseconds; else how many answers (default: all)"}},
        },
        {
            .name = "claim",
            .about = "Claim state that registrations are answered; the router registers again",
            .example = "drolab claim false",
            .required = {{"value", "true or false"}},
            .optional = {},
        },
        {
            .name = "sync-time",
            .about = "Daily sync time (UTC) that registrations are answered; the router registers again",
            .example = "drolab sync-time 02:30:00",
            .required = {{"value", "HH:MM:SS or null"}},
            .optional = {},
        },
        {
            .name = "circle",
            .about = "Tell the Circle agent how to answer, or let it report",
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
            .about = "Let a background speed test finish",
            .example = "drolab speedtest 300 40 manual",
            .required = {},
            .optional = {{"down", "Downlink speed"}, {"up", "Uplink speed"}, {"kind", "scheduled (default) or manual"}},
        },
        {
            .name = "service",
            .about = "Tell the device service how to meet requests",
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

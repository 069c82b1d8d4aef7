// habctl - command line of the store.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"

namespace {

constexpr int kWrongUsage = 64;
constexpr int kLongestWait = 86'400;  // seconds

// The parsed command line.
struct Order {
    bool force = false;
    bool upgrade = false;
    bool json = false;
    bool probe = false;
    int seconds = 0;
    std::string address;
    std::string value;
    std::vector<std::string> names;
    int status = 0;
};

void addVerbs(CLI::App& app, Order& order) {
    CLI::App* init = app.add_subcommand("init", "Create the store file from the schema");
    CLI::Option* force = init->add_flag("--force", order.force, "Replace an existing store; its values are lost");
    init->add_flag("--upgrade", order.upgrade, "Upgrade the store to the current schema; its values are kept")
        ->excludes(force);
    init->callback([&order] { order.status = habctl::init(order.force, order.upgrade); });

    CLI::App* get = app.add_subcommand("get", "Print a value");
    get->add_option("TABLE.FIELD[@ROW]", order.address)->required();
    get->callback([&order] { order.status = habctl::get(order.address); });

    CLI::App* set =
        app.add_subcommand("set", "Write a value: true or false, AA:BB:CC:DD:EE:FF, a.b.c.d, a number, a text");
    set->add_option("TABLE.FIELD[@ROW]", order.address)->required();
    set->add_option("VALUE", order.value)->required();
    set->callback([&order] { order.status = habctl::set(order.address, order.value); });

    CLI::App* watch = app.add_subcommand("watch", "Print TABLE.FIELD@ROW=VALUE for each change");
    watch->add_option("TABLE[.FIELD]", order.names, "What to watch; everything by default");
    watch->callback([&order] { order.status = habctl::watch(order.names); });

    CLI::App* dump = app.add_subcommand("dump", "Print all values that differ from their defaults, or whole tables");
    dump->add_flag("--json", order.json, "Print JSON that load can read");
    dump->add_option("TABLE", order.names);
    dump->callback([&order] { order.status = habctl::dump(order.json, order.names); });

    CLI::App* load = app.add_subcommand("load", "Write the values of a JSON file, all or none");
    load->add_option("FILE", order.address, R"({"TABLE": {"FIELD": value}} or {"TABLE": {"ROW": {"FIELD": value}}})")
        ->required()
        ->check(CLI::ExistingFile);
    load->callback([&order] { order.status = habctl::load(order.address); });

    CLI::App* describe = app.add_subcommand("describe", "Describe fields: type, length, default, purpose");
    describe->add_option("TABLE[.FIELD]", order.address);
    describe->callback([&order] { order.status = habctl::describe(order.address); });

    CLI::App* status = app.add_subcommand("status", "Print the agent's state; fail unless it accepts messages");
    status->add_option("--wait", order.seconds, "Wait until it accepts messages, at most SECONDS")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, kLongestWait).description(""));
    status->add_flag("--probe", order.probe, "Also fail unless the agent receives change notices");
    status->callback([&order] { order.status = habctl::status(std::chrono::seconds(order.seconds), order.probe); });
}

// Returns the arguments in the parser's order, last first. Adds "--" before a value of set, which may begin with a
// dash.
std::vector<std::string> arguments(int count, char** texts) {
    std::vector<std::string> all(texts + 1, texts + count);
    if (all.size() == 3 && all[0] == "set") {
        all.insert(all.begin() + 1, "--");
    }
    std::reverse(all.begin(), all.end());
    return all;
}

// Runs the command line. Returns the exit status.
int run(int count, char** texts) {
    CLI::App app("Reads and writes the hab store at the path in HAB_STORE (default /var/lib/hab/hab.db).", "habctl");
    Order order;
    app.require_subcommand(1);
    addVerbs(app, order);
    try {
        app.parse(arguments(count, texts));
        return order.status;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    } catch (const habctl::UsageError& error) {
        std::fprintf(stderr, "habctl: %s\n", error.what());
        return kWrongUsage;
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "habctl: %s\n", error.what());
        return HAB_ERROR;
    }
}

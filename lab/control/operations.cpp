#include "operations.h"

#include <charconv>
#include <ctime>
#include <map>
#include <stdexcept>

#include "commands.h"
#include "store_fields.h"

namespace lab {

namespace {

constexpr std::int64_t kSendPatienceMs = 20000;
constexpr std::size_t kListLength = 24;  // devices listed by "status" at most

// Returns the value of a word. `others` are further valid words; the caller handles them, and the error lists them.
template <typename Value>
Value oneOf(const std::map<std::string, Value>& known, const std::string& word, const std::string& others = {}) {
    const auto found = known.find(word);
    if (found != known.end()) {
        return found->second;
    }
    std::string words = others;
    for (const auto& [name, value] : known) {
        words += (words.empty() ? "" : ", ") + name;
    }
    throw std::runtime_error("\"" + word + "\" is not one of: " + words);
}

// Returns the number in a text argument, or `otherwise` when it is empty.
int numberTyped(const Json& arguments, const char* name, int otherwise) {
    const std::string text = textOf(arguments, name);
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty()) {
        return otherwise;
    }
    if (error != std::errc{} || end != text.data() + text.size() || number < 0) {
        throw std::runtime_error(std::string(name) + ": \"" + text + "\" is not a number");
    }
    return number;
}

std::chrono::milliseconds delayTyped(const Json& arguments) {
    return std::chrono::milliseconds(numberTyped(arguments, "value", 0));
}

// Inserts a device's MAC into command data as cdMac.
std::string withDevice(Lab& lab, const std::string& data, const std::string& device) {
    Json tree = parseJson(data.empty() ? "{}" : data);
    if (!tree.is_object()) {
        throw std::runtime_error("the data is not a JSON object: " + data);
    }
    if (device.empty()) {
        return data;
    }
    tree.erase("cdMac");
    tree["cdMac"] = macText(lab.population.at(lab.population.find(device)).mac);
    return printJson(tree);
}

Reply send(Lab& lab, const Json& arguments) {
    const std::string command = textOf(arguments, "command");
    std::string data = textOf(arguments, "data");
    if (const Command* known = findCommand(command); known != nullptr && data.empty()) {
        data = known->example;
    }
    data = withDevice(lab, data, textOf(arguments, "device"));
    const Json& timeout = member(arguments, "timeoutMs");
    const std::chrono::milliseconds patience(timeout.is_number() ? timeout.get<std::int64_t>() : kSendPatienceMs);
    const Outcome outcome = sendCommand(lab, command, data, patience);
    return {outcome.success, outcome.text + ", after " + std::to_string(outcome.took.count()) + " ms"};
}

Reply device(Lab& lab, const Json& arguments) {
    const std::string action = textOf(arguments, "action");
    const std::string name = textOf(arguments, "name");
    using Act = int (*)(DeviceService&, const std::string&);
    static const std::map<std::string, Act> kActs{
        {"join", [](DeviceService& service, const std::string& who) { return service.deviceJoined(who); }},
        {"online", [](DeviceService& service, const std::string& who) { return service.deviceOnline(who, true); }},
        {"offline", [](DeviceService& service, const std::string& who) { return service.deviceOnline(who, false); }},
        {"update", [](DeviceService& service, const std::string& who) { return service.deviceUpdated(who); }}};
    const int row = oneOf(kActs, action)(lab.devices, name);
    return {true, name + ": " + action + ", row " + std::to_string(row)};
}

Reply devices(Lab& lab, const Json& arguments) {
    lab.population.resize(numberTyped(arguments, "count", 0));
    return {true, "the network has " + std::to_string(lab.population.rows().size()) + " devices"};
}

Reply cloud(Lab& lab, const Json& arguments) {
    const std::string word = textOf(arguments, "mood");
    if (word == "down") {
        lab.cloud.down();
    } else if (word == "slow") {
        lab.cloud.slow(delayTyped(arguments));
    } else {
        static const std::map<std::string, Mood> kMoods{
            {"up", Mood::Accept},   {"refuse", Mood::Refuse},   {"stall", Mood::Stall}, {"error", Mood::Error},
            {"empty", Mood::Empty}, {"garbage", Mood::Garbage}, {"close", Mood::Close}};
        const Mood mood = oneOf(kMoods, word, "down, slow");
        lab.cloud.up();
        lab.cloud.behave(mood, numberTyped(arguments, "value", 0));
        if (word == "up") {
            lab.cloud.slow(std::chrono::milliseconds(0));
        }
    }
    return {true, "cloud: " + lab.cloud.describe()};
}

Reply claim(Lab& lab, const Json& arguments) {
    RegistrationAnswer answer = lab.cloud.registration();
    answer.claimState = oneOf<bool>({{"true", true}, {"false", false}}, textOf(arguments, "value"));
    lab.cloud.registration(answer);
    lab.registerAgain();
    return {true, std::string("registrations are answered with claimState ") + (answer.claimState ? "true" : "false") +
                      "; the router registers again"};
}

bool isTimeOfDay(const std::string& text) {
    constexpr std::size_t kLength = 8;  // two digits per number
    std::tm time{};
    const char* end = ::strptime(text.c_str(), "%H:%M:%S", &time);
    return text.size() == kLength && end != nullptr && *end == '\0' && time.tm_sec < 60;
}

Reply syncTime(Lab& lab, const Json& arguments) {
    RegistrationAnswer answer = lab.cloud.registration();
    const std::string value = textOf(arguments, "value");
    if (value != "null" && !isTimeOfDay(value)) {
        throw std::runtime_error("\"" + value + "\" is neither HH:MM:SS nor null");
    }
    answer.syncTime = value == "null" ? "" : value;
    lab.cloud.registration(answer);
    lab.registerAgain();
    return {true, "registrations are answered with syncTime " + value + "; the router registers again"};
}

void reportHealth(Lab& lab, const std::string& what, const std::string& state) {
    const std::map<std::string, bool> truth{{"true", true}, {"false", false}};
    if (what == "running") {
        lab.circle.reportRunning(oneOf(truth, state));
    } else if (what == "provisioned") {
        lab.circle.reportProvisioned(oneOf(truth, state));
    } else if (what == "client") {
        lab.circle.reportClient(state);
    } else {
        throw std::runtime_error("\"" + what + "\" is not one of: running, provisioned, client");
    }
}

Reply circle(Lab& lab, const Json& arguments) {
    const std::string action = textOf(arguments, "action");
    const std::string value = textOf(arguments, "value");
    if (action == "delay") {
        lab.circle.delay(delayTyped(arguments));
    } else if (action == "health") {
        reportHealth(lab, value, textOf(arguments, "state"));
    } else {
        static const std::map<std::string, CircleMood> kMoods{
            {"success", CircleMood::Success}, {"fail", CircleMood::Fail}, {"silent", CircleMood::Silent}};
        lab.circle.mood(oneOf(kMoods, action, "delay, health"));
        if (!value.empty()) {
            lab.circle.failsWith(value);
        }
    }
    return {true, "Circle agent: " + lab.circle.describe()};
}

Reply speedTest(Lab& lab, const Json& arguments) {
    SpeedTest result;
    result.down = static_cast<std::uint32_t>(numberTyped(arguments, "down", static_cast<int>(result.down)));
    result.up = static_cast<std::uint32_t>(numberTyped(arguments, "up", static_cast<int>(result.up)));
    result.scheduled = oneOf<bool>({{"", true}, {"scheduled", true}, {"manual", false}}, textOf(arguments, "kind"));
    lab.devices.speedTestDone(result);
    return {true, "speed test finished"};
}

Reply service(Lab& lab, const Json& arguments) {
    const std::string word = textOf(arguments, "mood");
    if (word == "slow") {
        lab.devices.slow(delayTyped(arguments));
    } else {
        static const std::map<std::string, ServiceMood> kMoods{
            {"ok", ServiceMood::Ok}, {"silent", ServiceMood::Silent}, {"wrong", ServiceMood::Wrong}};
        lab.devices.mood(oneOf(kMoods, word, "slow"));
    }
    return {true, "device service: " + lab.devices.describe()};
}

Reply status(Lab& lab, const Json&) {
    std::string text = "store           " + lab.storePath() + "\nagent           version " +
                       lab.store.get(field::DalModuleVersion::DroagentVersion) + ", messages at " +
                       lab.connector.address() + ", log " + lab.logFile() + "\nrouter          " +
                       (lab.store.isTrue(field::DROStatus::addJorvdeviceIdDone) ? "registered" : "not registered") +
                       (lab.store.isTrue(field::DroCfg::claimState) ? ", claimed" : ", not claimed") +
                       "\ncloud           " + lab.cloud.describe() + ", " + std::to_string(lab.record.mark()) +
                       " requests\ndevice service  " + lab.devices.describe() + "\nCircle agent    " +
                       lab.circle.describe() + ", " + lab.store.get(field::CircleStatus::activationStatus);
    const auto rows = lab.population.rows();
    for (std::size_t i = 0; i < rows.size() && i < kListLength; ++i) {
        const Device one = lab.population.at(rows.at(i));
        text += "\n  " + macText(one.mac) + "  " + (one.online ? "online   " : "offline  ") + one.name;
    }
    if (rows.size() > kListLength) {
        text += "\n  and " + std::to_string(rows.size() - kListLength) + " more";
    }
    return {true, text};
}

}  // namespace

Reply perform(Lab& lab, const std::string& operation, const Json& arguments) {
    using Operation = Reply (*)(Lab&, const Json&);
    static const std::map<std::string, Operation> kOperations{
        {"status", status},       {"send", send},      {"device", device},      {"devices", devices},
        {"cloud", cloud},         {"claim", claim},    {"sync-time", syncTime}, {"circle", circle},
        {"speedtest", speedTest}, {"service", service}};
    try {
        return oneOf(kOperations, operation)(lab, arguments);
    } catch (const std::exception& problem) {
        return {false, problem.what()};
    }
}

}  // namespace lab

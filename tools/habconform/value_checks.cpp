// Names, rows, types, limits, and calls that must fail.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <set>

#include "check.h"

namespace habconform {

namespace {

constexpr const char* kNoField = "NoSuchFieldOfTheAgent";

void requireNone(const std::vector<std::string>& findings) {
    constexpr std::size_t kShown = 5;
    std::string text;
    for (std::size_t i = 0; i < std::min(findings.size(), kShown); ++i) {
        text += (i > 0 ? "; " : "") + findings[i];
    }
    require(findings.empty(), text + (findings.size() > kShown ? "; ..." : ""));
}

// Reads every field with at least `rows` rows in its last row, under each of its names.
void readAll(hab_session* session, int rows) {
    std::vector<std::string> findings;
    for (const Field& field : agentFields()) {
        for (const char* name : {field.name, field.alias}) {
            const Place place{&field, rows - 1, name};
            std::string value;
            const int status = *name == '\0' || field.rows < rows ? HAB_OK : readValue(session, place, value);
            if (status != HAB_OK) {
                findings.push_back(textOf(place) + " as " + nameOf(field.type) + ": status " + std::to_string(status) +
                                   (status == HAB_TOO_LONG ? ", longer than " + std::to_string(field.longest) : ""));
            }
        }
    }
    requireNone(findings);
}

std::string fields() {
    readAll(openSession().get(), 1);
    return std::to_string(agentFields().size()) + " fields";
}

// A text buffer for the library, followed by guard bytes.
struct Buffer {
    static constexpr std::size_t kLength = 8;
    std::array<char, 64> bytes{};

    Buffer() { std::fill(bytes.begin() + kLength, bytes.end(), '#'); }
    void requireEmpty() const {
        require(std::all_of(bytes.begin() + kLength, bytes.end(), [](char byte) { return byte == '#'; }),
                "bytes beyond the buffer were written");
        require(std::memchr(bytes.data(), '\0', kLength) != nullptr, "the text is not terminated");
        require(bytes[0] == '\0', std::string("the buffer has '") + bytes.data() + "'");
    }
};

std::string rows() {
    constexpr int kDeviceRows = 256;
    const Session session = openSession();
    readAll(session.get(), kDeviceRows);
    // The agent reads the row that a notifier contains, also one that no device can have.
    for (const int row : {-1, kDeviceRows, INT_MAX}) {
        Buffer buffer;
        const int status = hab_get_string(session.get(), "DeviceIdList", row, "DeviceDisplayName", buffer.bytes.data(),
                                          Buffer::kLength);
        require(status != HAB_OK, "row " + std::to_string(row) + " was read");
        buffer.requireEmpty();
    }
    return "";
}

std::string names() {
    std::set<std::string> tables;
    std::set<std::string> known;
    for (const Field& field : agentFields()) {
        tables.insert(field.table);
        known.insert(std::string(field.table) + "." + field.name);
    }
    std::vector<std::string> findings;
    const Session session = openSession();
    for (Field field : agentFields()) {
        for (const std::string& table : tables) {
            const std::string name = table + "." + field.name;
            if (strcasecmp(table.c_str(), field.table) == 0 && known.count(name) == 0) {
                field.table = table.c_str();
                std::string value;
                if (readValue(session.get(), {&field, 0, field.name}, value) == HAB_OK) {
                    findings.push_back(name + " exists");
                }
            }
        }
    }
    requireNone(findings);
    return "";
}

template <Type type>
std::string values() {
    const std::vector<Place> places = scratchPlaces(type);
    const Session session = openSession();
    for (const Place& place : places) {
        for (const std::string& value : limitsOf(*place.field)) {
            set(session.get(), place, value);
            const std::string now = get(session.get(), place);
            require(now == value, textOf(place).append(" = '" + value).append("' was read as '" + now) + "'");
        }
    }
    return std::to_string(places.size()) + " of the fields";
}

std::string macText() {
    using Mac = std::array<std::uint8_t, 6>;
    for (const char* good : {"0A:1B:FF:80:00:01", "0a:1b:ff:80:00:01"}) {
        Mac mac{};
        require(hab_string2mac(good, mac.data()) == 0, std::string(good) + " was refused");
        require(mac == Mac{0x0A, 0x1B, 0xFF, 0x80, 0x00, 0x01}, std::string(good) + " was parsed as another address");
    }
    for (const char* bad : {"", "0A:1B:FF:80:00", "0A-1B-FF-80-00-01", "0A:1B:FF:80:00:0G", "0A:1B:FF:80:00:01:"}) {
        Mac mac{};
        require(hab_string2mac(bad, mac.data()) != 0, std::string("'") + bad + "' was accepted");
    }
    return "";
}

std::string shortBuffer() {
    const Session session = openSession();
    for (const Type type : {Type::asciiType, Type::stringType}) {
        const Place place = scratchPlaces(type).front();
        set(session.get(), place, "12345678");
        Buffer buffer;
        const TextGetter getter = kTextGetters[static_cast<std::size_t>(type)];
        require(getter(session.get(), place.field->table, place.row, place.name, buffer.bytes.data(),
                       Buffer::kLength) != HAB_OK,
                "the read of 8 bytes into a buffer of 8 returned 0");
        buffer.requireEmpty();
    }
    return "";
}

std::string failedRead() {
    const Session session = openSession();
    for (const TextGetter getter : kTextGetters) {
        Buffer buffer;
        require(getter(session.get(), "General", 0, kNoField, buffer.bytes.data(), Buffer::kLength) != HAB_OK,
                "the read of an unknown field returned 0");
        buffer.requireEmpty();
    }
    bool flag = true;
    std::int32_t number = -257;
    std::uint32_t index = 257;
    std::array<std::uint8_t, 6> mac{};
    const auto fails = [&session](auto getter, auto* result) {
        return getter(session.get(), "General", 0, kNoField, result) != HAB_OK;
    };
    require(fails(hab_get_bool, &flag) && fails(hab_get_int, &number) && fails(hab_get_uint, &index) &&
                fails(hab_get_mac, mac.data()) && fails(hab_get_ipv4, mac.data()),
            "the read of an unknown field returned 0");
    require(flag && number == -257 && index == 257 && mac == decltype(mac){}, "the failed read changed the result");
    return "";
}

std::string failedWrite() {
    constexpr std::size_t kTooLong = 70'000;
    const Session session = openSession();
    require(hab_set_uint(session.get(), "DALHConfig", 0, kNoField, 1) != HAB_OK &&
                hab_set_ascii(session.get(), "NoSuchTableOfTheAgent", 0, "Index", "1") != HAB_OK,
            "the write of an unknown field returned 0");
    const Place place = scratchPlaces(Type::asciiType).front();
    set(session.get(), place, "before");
    const int status = writeValue(session.get(), place, std::string(kTooLong, 'x'));
    std::vector<char> now(kTooLong + 1);
    requireDone(hab_get_ascii(session.get(), place.field->table, place.row, place.name, now.data(), now.size()),
                "the read after the write of 70,000 bytes");
    require(status == HAB_OK ? std::strlen(now.data()) == kTooLong : now.data() == std::string("before"),
            "the write of 70,000 bytes returned " + std::to_string(status) + " and stored a part");
    return "status " + std::to_string(status) + " for 70,000 bytes";
}

std::string noSession() {
    hab_session* closed = openSession().release();
    hab_destroy(closed);
    for (hab_session* session : {static_cast<hab_session*>(nullptr), closed}) {
        std::uint32_t number = 0;
        Buffer buffer;
        require(hab_get_uint(session, "JorvagentCfg", 0, "jorv_agent_connected", &number) != HAB_OK &&
                    hab_get_ascii(session, "General", 0, "FSN", buffer.bytes.data(), Buffer::kLength) != HAB_OK,
                "a read returned 0");
        buffer.requireEmpty();
    }
    return "";
}

}  // namespace

const std::vector<Check> kValueChecks{
    {"fields", Check::reads, "every field that the agent uses is read with its type, into the agent's buffer",
     "it works with an empty text or zero in its place", fields},
    {"rows", Check::reads, "the device tables have the rows 0 to 255 and no others",
     "devices are missing from its lists and events, or do not exist", rows},
    {"names", Check::reads, "names are compared with their case: Drocfg and DroCfg are two tables",
     "it mixes the cloud's address and the claim state with other values", names},
    {"ascii", Check::writes, "an ascii text is read as it was written, from empty to the longest",
     "transaction ids and device types arrive changed", values<Type::asciiType>},
    {"string", Check::writes, "a string is read as it was written, with UTF-8, from empty to the longest",
     "device names and progress marks arrive changed", values<Type::stringType>},
    {"enum", Check::writes, "every enum value that the agent writes is accepted and read back",
     "the device service receives another tag state or list selection", values<Type::enumType>},
    {"bool", Check::writes, "a bool is read as it was written", "its orders get no monitor, and no result is reported",
     values<Type::boolType>},
    {"int", Check::writes, "an int is read as it was written, at its limits", "it cannot ask the connector to connect",
     values<Type::intType>},
    {"uint", Check::writes, "a uint is read as it was written, at its limits",
     "the device service carries out another operation", values<Type::uintType>},
    {"mac", Check::writes, "a MAC address is read as it was written", "another device is blocked, tagged or removed",
     values<Type::macType>},
    {"mac-text", Check::reads, "hab_string2mac parses six hexadecimal pairs joined by colons and nothing else",
     "a malformed command is carried out on another device", macText},
    {"short-buffer", Check::writes, "the read of a text that does not fit fails and leaves an empty text",
     "a cut transaction id or token is used as a whole one", shortBuffer},
    {"failed-read", Check::reads,
     "a failed read leaves an empty text empty and terminated, and other results unchanged",
     "garbage is sent to the cloud, or row 0 is taken for a changed device", failedRead},
    {"failed-write", Check::writes, "a write that is not carried out returns a status and changes nothing",
     "a command is acknowledged as done that was not written", failedWrite},
    {"no-session", Check::reads, "a read with a null or a closed session returns a status",
     "it crashes at its stop, when a notice or a thread still runs", noSession},
};

}  // namespace habconform

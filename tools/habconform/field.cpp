#include "field.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace habconform {

namespace {

using Mac = std::array<std::uint8_t, 6>;

bool isText(const Field& field) {
    return field.type <= Type::enumType;
}

std::string textOfMac(const Mac& mac) {
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return text.data();
}

// Parses a MAC address without the library, whose parser is under test.
Mac macOf(const std::string& text) {
    Mac mac{};
    for (std::size_t i = 0; i < mac.size() && 3 * i < text.size(); ++i) {
        mac[i] = static_cast<std::uint8_t>(std::strtoul(text.c_str() + 3 * i, nullptr, 16));
    }
    return mac;
}

std::string longestText(const Field& field) {
    const std::string pattern =
        field.type == Type::stringType ? "\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80 " : "aZ 09\"\\%s/~";
    std::string text;
    while (text.size() + pattern.size() <= field.longest) {
        text += pattern;
    }
    return text.append(field.longest - text.size(), 'x');
}

}  // namespace

const char* nameOf(Type type) {
    constexpr std::array<const char*, 8> kNames{"ascii", "string", "enum", "bool", "int", "uint", "ipv4", "mac"};
    return kNames[static_cast<std::size_t>(type)];
}

const std::vector<Field>& agentFields() {
    static const std::vector<Field> fields{
#include "agent_fields.inc"
    };
    return fields;
}

std::string textOf(const Place& place) {
    return std::string(place.field->table) + "." + place.name + "@" + std::to_string(place.row);
}

bool operator==(const Place& left, const Place& right) {
    return left.field == right.field && left.row == right.row;
}

Place writablePlace(const std::string& address) {
    const std::string wanted = address.find('@') == std::string::npos ? address + "@0" : address;
    const auto row = static_cast<int>(std::strtol(wanted.c_str() + wanted.find('@') + 1, nullptr, 10));
    for (const Field& field : agentFields()) {
        for (const char* name : {field.name, field.alias}) {
            const Place place{&field, row, name};
            if (wanted != textOf(place) || row < 0 || row >= field.rows) {
                continue;
            }
            if (field.writes == Writes::never || limitsOf(field).empty()) {
                throw std::runtime_error(address + (field.writes == Writes::never ? ": a write starts an operation"
                                                                                  : ": the agent does not write it"));
            }
            return place;
        }
    }
    throw std::runtime_error(address + ": the agent uses no such field");
}

int readValue(hab_session* session, const Place& place, std::string& value) {
    const Field& field = *place.field;
    if (isText(field)) {
        std::vector<char> text(field.longest + 2);  // one byte more than the agent's buffer, always NUL
        const TextGetter getter = kTextGetters[static_cast<std::size_t>(field.type)];
        const int status = getter(session, field.table, place.row, place.name, text.data(), field.longest + 1);
        value = text.data();
        return status;
    }
    const auto get = [&](auto getter, auto* result) {
        return getter(session, field.table, place.row, place.name, result);
    };
    if (field.type == Type::ipv4Type || field.type == Type::macType) {
        Mac bytes{};
        const int status = get(field.type == Type::macType ? hab_get_mac : hab_get_ipv4, bytes.data());
        value = textOfMac(bytes);
        return status;
    }
    bool flag = false;
    std::int32_t number = 0;
    std::uint32_t positive = 0;
    const int status = field.type == Type::boolType  ? get(hab_get_bool, &flag)
                       : field.type == Type::intType ? get(hab_get_int, &number)
                                                     : get(hab_get_uint, &positive);
    value = std::to_string(std::int64_t{flag ? 1 : 0} + number + positive);
    return status;
}

int writeValue(hab_session* session, const Place& place, const std::string& value) {
    const Field& field = *place.field;
    const auto set = [&](auto setter, auto given) {
        return setter(session, field.table, place.row, place.name, given);
    };
    if (isText(field)) {
        constexpr std::array kSetters{hab_set_ascii, hab_set_string, hab_set_enum};
        return set(kSetters[static_cast<std::size_t>(field.type)], value.c_str());
    }
    if (field.type == Type::macType) {
        const Mac mac = macOf(value);
        return set(hab_set_mac, mac.data());
    }
    const long long number = std::strtoll(value.c_str(), nullptr, 10);
    return field.type == Type::boolType  ? set(hab_set_bool, number != 0)
           : field.type == Type::intType ? set(hab_set_int, static_cast<std::int32_t>(number))
                                         : set(hab_set_uint, static_cast<std::uint32_t>(number));
}

std::string numbered(const Field& field, unsigned number) {
    if (field.type == Type::enumType) {
        const std::vector<std::string> words = limitsOf(field);
        return words.empty() ? "" : words[number % words.size()];
    }
    if (field.type == Type::macType) {
        const auto byte = [number](unsigned shift) { return static_cast<std::uint8_t>(number >> shift); };
        return textOfMac({0x02, 0, byte(24), byte(16), byte(8), byte(0)});
    }
    return std::to_string(field.type == Type::boolType ? number % 2 : number);
}

std::vector<std::string> limitsOf(const Field& field) {
    std::istringstream words(field.words);
    switch (field.type) {
        case Type::asciiType:
        case Type::stringType:
            return {"", "a", longestText(field)};
        case Type::enumType:
            return {std::istream_iterator<std::string>(words), {}};
        case Type::boolType:
            return {"1", "0"};
        case Type::intType:
            return {"-2147483648", "2147483647", "0"};
        case Type::uintType:
            return {"0", "4294967295"};
        case Type::macType:
            return {"00:00:00:00:00:00", "FF:FF:FF:FF:FF:FF", "02:80:7F:00:0A:01"};
        case Type::ipv4Type:
            break;
    }
    return {};
}

}  // namespace habconform

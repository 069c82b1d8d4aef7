#include <algorithm>
#include <charconv>
#include <cstdio>

#include "commands.h"

namespace habctl {

Address addressFrom(std::string_view text) {
    Address address;
    const std::size_t at = text.rfind('@');
    if (at != std::string_view::npos) {
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + at + 1, end, address.row);
        if (error != std::errc() || stop != end) {
            throw UsageError("no row number after @ in '" + std::string(text) + "'");
        }
    }
    const std::string_view names = text.substr(0, at);
    const std::size_t dot = names.find('.');
    address.table = names.substr(0, dot);
    address.field = dot == std::string_view::npos ? "" : names.substr(dot + 1);
    if (address.table.empty() || (dot != std::string_view::npos && address.field.empty())) {
        throw UsageError("'" + std::string(text) + "' is not of the form TABLE.FIELD[@ROW]");
    }
    return address;
}

std::string textOf(const hab_host_value& place) {
    return std::string(place.table) + "." + place.field + "@" + std::to_string(place.row);
}

std::string valueLine(const hab_host_value& value) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string line = textOf(value) + "=";
    for (const char* c = value.text; *c != '\0'; ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        if (*c == '\n') {
            line += "\\n";
        } else if (*c == '\\') {
            line += "\\\\";
        } else if (byte < 0x20 || byte == 0x7f) {
            line += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 15U]};
        } else {
            line += *c;
        }
    }
    return line + "\n";
}

int complain(int status, std::string_view what) {
    if (status != HAB_OK) {
        const std::string line = "habctl: " + std::string(what) + ": " + hab_error_string(status) + "\n";
        std::fputs(line.c_str(), stderr);
    }
    return status;
}

const FieldInfo* TableInfo::field(std::string_view wanted) const {
    const auto found = std::find_if(fields.begin(), fields.end(), [&](const FieldInfo& field) {
        return field.name == wanted || (field.alias == wanted && !wanted.empty());
    });
    return found == fields.end() ? nullptr : &*found;
}

std::vector<TableInfo> describeTables(hab_session* session) {
    std::vector<TableInfo> tables;
    const auto add = [](const hab_host_field* field, void* context) {
        auto& known = *static_cast<std::vector<TableInfo>*>(context);
        if (known.empty() || known.back().name != field->table) {
            known.push_back({field->table, field->rows, field->table_about, {}});
        }
        known.back().fields.push_back(
            {field->name, field->alias, field->type, field->longest, field->initial, field->about});
    };
    complain(hab_host_describe(session, add, &tables), "the schema");
    return tables;
}

const TableInfo* tableNamed(const std::vector<TableInfo>& tables, std::string_view name) {
    const auto found =
        std::find_if(tables.begin(), tables.end(), [&](const TableInfo& table) { return table.name == name; });
    return found == tables.end() ? nullptr : &*found;
}

}  // namespace habctl

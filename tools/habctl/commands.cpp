#include "commands.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

namespace habctl {

namespace {

// Opens a session. Returns null after hablib has reported the cause.
Session open() {
    return Session(hab_init());
}

Address fieldAddress(const std::string& text) {
    Address address = addressFrom(text);
    if (address.field.empty()) {
        throw UsageError("'" + text + "' is not of the form TABLE.FIELD[@ROW]");
    }
    return address;
}

void printField(const TableInfo& table, const FieldInfo& field) {
    const std::string type = field.longest == 0 ? field.type : field.type + "(" + std::to_string(field.longest) + ")";
    const std::string alias = field.alias.empty() ? "" : " (also " + field.alias + ")";
    std::printf("%s.%s%s\t%s\t%s\t%s\n", table.name.c_str(), field.name.c_str(), alias.c_str(), type.c_str(),
                field.initial.empty() ? "\"\"" : field.initial.c_str(), field.about.c_str());
}

std::vector<OwnedValue> changedValues(hab_session* session, int& status) {
    std::vector<OwnedValue> values;
    const auto add = [](const hab_host_value* value, void* context) {
        static_cast<std::vector<OwnedValue>*>(context)->push_back(
            {value->table, value->row, value->field, value->text});
    };
    status = complain(hab_host_each_value(session, add, &values), "the store");
    return values;
}

// Appends all values of a table. For a table with several rows, only rows that contain a changed value.
int wholeTable(hab_session* session, const TableInfo& table, const std::vector<OwnedValue>& changed,
               std::vector<OwnedValue>& values) {
    std::set<int> rows;
    if (table.rows == 1) {
        rows.insert(0);
    }
    for (const OwnedValue& value : changed) {
        if (value.table == table.name) {
            rows.insert(value.row);
        }
    }
    for (const int row : rows) {
        for (const FieldInfo& field : table.fields) {
            std::array<char, HAB_HOST_TEXT_SIZE> text{};
            const int status =
                hab_host_get_text(session, table.name.c_str(), row, field.name.c_str(), text.data(), text.size());
            if (status != HAB_OK) {
                return complain(status, table.name + "." + field.name);
            }
            values.push_back({table.name, row, field.name, text.data()});
        }
    }
    return HAB_OK;
}

}  // namespace

int init(bool replace, bool upgrade) {
    std::array<char, HAB_HOST_TEXT_SIZE> path{};
    if (const int status = hab_host_store_path(path.data(), path.size()); status != HAB_OK) {
        return complain(status, "HAB_STORE");
    }
    return upgrade ? hab_host_upgrade(path.data()) : hab_host_create(path.data(), replace);
}

int get(const std::string& address) {
    const auto [table, field, row] = fieldAddress(address);
    const Session session = open();
    if (!session) {
        return HAB_ERROR;
    }
    std::array<char, HAB_HOST_TEXT_SIZE> text{};
    const int status = hab_host_get_text(session.get(), table.c_str(), row, field.c_str(), text.data(), text.size());
    if (status == HAB_OK) {
        std::puts(text.data());
    }
    return complain(status, address);
}

int set(const std::string& address, const std::string& value) {
    const auto [table, field, row] = fieldAddress(address);
    const Session session = open();
    if (!session) {
        return HAB_ERROR;
    }
    return complain(hab_host_set_text(session.get(), table.c_str(), row, field.c_str(), value.c_str()), address);
}

int describe(const std::string& address) {
    const Address wanted = address.empty() ? Address{} : addressFrom(address);
    const Session session = open();
    if (!session) {
        return HAB_ERROR;
    }
    bool found = false;
    for (const TableInfo& table : describeTables(session.get())) {
        if (!wanted.table.empty() && wanted.table != table.name) {
            continue;
        }
        if (wanted.field.empty()) {
            std::printf("# %s, %d row%s: %s\n", table.name.c_str(), table.rows, table.rows == 1 ? "" : "s",
                        table.about.c_str());
        }
        const FieldInfo* named = table.field(wanted.field);
        for (const FieldInfo& field : table.fields) {
            if (wanted.field.empty() || &field == named) {
                printField(table, field);
                found = true;
            }
        }
    }
    return found ? HAB_OK : complain(HAB_NOSUCH_ITEM, address);
}

int dump(bool json, const std::vector<std::string>& names) {
    const Session session = open();
    if (!session) {
        return HAB_ERROR;
    }
    const std::vector<TableInfo> tables = describeTables(session.get());
    int status = HAB_OK;
    std::vector<OwnedValue> values = changedValues(session.get(), status);
    if (!names.empty()) {
        const std::vector<OwnedValue> changed = std::exchange(values, {});
        for (const std::string& name : names) {
            const TableInfo* table = tableNamed(tables, name);
            if (table == nullptr) {
                return complain(HAB_NOSUCH_ITEM, name);
            }
            status = status != HAB_OK ? status : wholeTable(session.get(), *table, changed, values);
        }
    }
    if (status != HAB_OK) {
        return status;
    }
    if (json) {
        std::puts(jsonFrom(values, tables).c_str());
        return HAB_OK;
    }
    for (const OwnedValue& value : values) {
        std::fputs(valueLine(value.view()).c_str(), stdout);
    }
    return HAB_OK;
}

int load(const std::string& path) {
    std::ostringstream json;
    json << std::ifstream(path).rdbuf();
    const Session session = open();
    if (!session) {
        return HAB_ERROR;
    }
    std::vector<OwnedValue> values;
    if (const int status = valuesFrom(json.str(), describeTables(session.get()), values); status != HAB_OK) {
        return status;
    }
    std::vector<hab_host_value> views;
    views.reserve(values.size());
    for (const OwnedValue& value : values) {
        views.push_back(value.view());
    }
    std::size_t failed = 0;
    const int status = hab_host_set_all(session.get(), views.data(), views.size(), &failed);
    return complain(status, path + ": " + (failed < views.size() ? textOf(views[failed]) : "nothing written"));
}

}  // namespace habctl

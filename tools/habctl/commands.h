// commands.h - the verbs of habctl. Each answers an exit status: 0 or a HAB_ status; what went wrong is on standard
// error then. Words that cannot be understood throw UsageError.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "habhost.h"

namespace habctl {

class UsageError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

struct CloseSession {
    void operator()(hab_session* session) const { hab_destroy(session); }
};
using Session = std::unique_ptr<hab_session, CloseSession>;

// TABLE, TABLE.FIELD or TABLE.FIELD@ROW, with what is left out empty or 0.
struct Address {
    std::string table;
    std::string field;
    int row = 0;
};
Address addressFrom(std::string_view text);
std::string textOf(const hab_host_value& place);

// "TABLE.FIELD@ROW=VALUE", with control bytes and backslashes in the value escaped, so that it is one line.
std::string valueLine(const hab_host_value& value);

// Says on standard error what `status` means for `what`, and hands it back.
int complain(int status, std::string_view what);

struct FieldInfo {
    std::string name;
    std::string alias;
    std::string type;
    std::size_t longest;
    std::string initial;
    std::string about;
};
struct TableInfo {
    std::string name;
    int rows;
    std::string about;
    std::vector<FieldInfo> fields;

    // By its name or its alias; null when there is none.
    const FieldInfo* field(std::string_view wanted) const;
};
// All tables in the schema's order.
std::vector<TableInfo> describeTables(hab_session* session);
const TableInfo* tableNamed(const std::vector<TableInfo>& tables, std::string_view name);

int init(bool replace, bool upgrade);
int get(const std::string& address);
int set(const std::string& address, const std::string& value);
int describe(const std::string& address);
// Prints until it is interrupted, its output is closed, or the store is gone.
int watch(const std::vector<std::string>& addresses);
int dump(bool json, const std::vector<std::string>& tables);
int load(const std::string& path);
// Prints how the agent on this machine stands. HAB_OK while it takes messages, HAB_TIMEOUT while it only runs,
// HAB_SHUTDOWN when it does not run. To be called by the agent's user or root, for whom its sockets can be seen.
int status();

// A value of a field, with the storage that a hab_host_value points at.
struct OwnedValue {
    std::string table;
    int row = 0;
    std::string field;
    std::string text;

    hab_host_value view() const { return {table.c_str(), row, field.c_str(), text.c_str()}; }
};

// The values as a JSON text that valuesFrom reads, in the order given.
std::string jsonFrom(const std::vector<OwnedValue>& values, const std::vector<TableInfo>& tables);
// Reads a JSON text. Returns HAB_OK, or the status of what is wrong with it, said on standard error.
int valuesFrom(const std::string& json, const std::vector<TableInfo>& tables, std::vector<OwnedValue>& values);

}  // namespace habctl

// commands.h - the subcommands of habctl. Each returns an exit status: 0 or a HAB_ status, with the cause on standard
// error. Arguments that cannot be parsed throw UsageError.
#pragma once

#include <chrono>
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

// The parts of TABLE, TABLE.FIELD or TABLE.FIELD@ROW. Missing parts are empty or 0.
struct Address {
    std::string table;
    std::string field;
    int row = 0;
};
Address addressFrom(std::string_view text);
std::string textOf(const hab_host_value& place);

// Returns "TABLE.FIELD@ROW=VALUE" as one line, with control bytes and backslashes in the value escaped.
std::string valueLine(const hab_host_value& value);

// Prints the text of a failed `status` for `what` on standard error. Returns `status`.
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

    // Looks up a field by name or alias. Returns null when there is none.
    const FieldInfo* field(std::string_view wanted) const;
};
// Returns all tables in schema order.
std::vector<TableInfo> describeTables(hab_session* session);
const TableInfo* tableNamed(const std::vector<TableInfo>& tables, std::string_view name);

int init(bool replace, bool upgrade);
int get(const std::string& address);
int set(const std::string& address, const std::string& value);
int describe(const std::string& address);
// Prints changes until it is interrupted, its output is closed, or the store file is removed or replaced.
int watch(const std::vector<std::string>& addresses);
int dump(bool json, const std::vector<std::string>& tables);
int load(const std::string& path);
// Prints the state of the agent on this machine. Returns HAB_OK when the agent accepts messages, HAB_TIMEOUT when it
// runs but does not accept messages, HAB_SHUTDOWN when it does not run. Waits up to `patience` for HAB_OK. Run it as
// the agent's user or as root; other users cannot read the agent's sockets. With `probed`, also sets the agent's reload
// flag and returns 10 when the agent does not reset it within two seconds or the rest of `patience`, whichever is
// longer.
int status(std::chrono::seconds patience, bool probed);

// A field's value, with the storage for a hab_host_value.
struct OwnedValue {
    std::string table;
    int row = 0;
    std::string field;
    std::string text;

    hab_host_value view() const { return {table.c_str(), row, field.c_str(), text.c_str()}; }
};

// Returns the values as JSON for valuesFrom, in the given order.
std::string jsonFrom(const std::vector<OwnedValue>& values, const std::vector<TableInfo>& tables);
// Parses a JSON text. Returns HAB_OK, or the status of an error after reporting it on standard error.
int valuesFrom(const std::string& json, const std::vector<TableInfo>& tables, std::vector<OwnedValue>& values);

}  // namespace habctl

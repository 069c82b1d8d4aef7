#include "store_spy.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <habhost.h>
#include <hablib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>

namespace dro_test {
namespace {

struct Seen {
    bool active = false;
    bool changesOnly = false;
    std::vector<std::string> writes;
    std::map<std::string, int> failures;
    std::map<std::string, std::function<void()>> actions;
};

std::mutex g_mutex;

Seen& seen() {
    static auto* const all = new Seen;  // agent threads may outlive main's statics
    return *all;
}

std::string name_of(const char* table, const char* field) {
    return std::string(table) + "." + field;
}

int failure_of(const std::string& name) {
    const std::lock_guard lock(g_mutex);
    return seen().failures.contains(name) ? seen().failures.at(name) : HAB_OK;
}

// Records a write and returns its injected status.
int note_write(const char* table, const char* field, const std::string& value) {
    const std::string name = name_of(table, field);
    std::unique_lock lock(g_mutex);
    if (seen().active) {
        seen().writes.push_back(name + "=" + value);
    }
    const std::function<void()> action = seen().actions[name];
    lock.unlock();
    if (action) {
        action();
    }
    return failure_of(name);
}

// True when the write leaves the value unchanged and only changes are reported.
bool dropped(hab_session* session, const char* table, int row, const char* field, const std::string& value) {
    {
        const std::lock_guard lock(g_mutex);
        if (!seen().changesOnly) {
            return false;
        }
    }
    std::array<char, 8192> held{};
    return hab_host_get_text(session, table, row, field, held.data(), held.size()) == HAB_OK && value == held.data();
}

// The store library's function that the function of the same name here replaces.
template <typename Function>
Function* behind(Function* /*ours*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <typename Value>
std::string as_text(Value value) {
    std::ostringstream text;
    text << std::boolalpha << value;
    return text.str();
}
std::string as_text(const std::uint8_t* mac) {
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return text.data();
}

}  // namespace

StoreSpy::StoreSpy() {
    const std::lock_guard lock(g_mutex);
    seen().active = true;
}

StoreSpy::~StoreSpy() {
    const std::lock_guard lock(g_mutex);
    seen() = {};
}

void StoreSpy::fail(const std::string& field, int status) {
    const std::lock_guard lock(g_mutex);
    seen().failures[field] = status;
}

void StoreSpy::report_changes_only() {
    const std::lock_guard lock(g_mutex);
    seen().changesOnly = true;
}

void StoreSpy::before_write(const std::string& field, std::function<void()> action) {
    const std::lock_guard lock(g_mutex);
    seen().actions[field] = std::move(action);
}

std::vector<std::string> StoreSpy::writes(std::string_view start) const {
    const std::lock_guard lock(g_mutex);
    std::vector<std::string> matching;
    std::copy_if(seen().writes.begin(), seen().writes.end(), std::back_inserter(matching),
                 [start](const std::string& write) { return write.starts_with(start); });
    return matching;
}

// These definitions in the test program take precedence over the library's functions of the same names.
extern "C" {

// `failure` is the injected status.
#define SPY(function, type, failure, unchanged)                                                     \
    int function(hab_session* session, const char* table, int row, const char* field, type value) { \
        static const auto next = behind(function, #function);                                       \
        const int status = failure;                                                                 \
        return status != HAB_OK || (unchanged) ? status : next(session, table, row, field, value);  \
    }
#define SPY_WRITE(function, type) \
    SPY(function, type, note_write(table, field, as_text(value)), dropped(session, table, row, field, as_text(value)))
SPY_WRITE(hab_set_ascii, const char*)
SPY_WRITE(hab_set_string, const char*)
SPY_WRITE(hab_set_enum, const char*)
SPY_WRITE(hab_set_bool, bool)
SPY_WRITE(hab_set_int, std::int32_t)
SPY_WRITE(hab_set_uint, std::uint32_t)
SPY_WRITE(hab_set_mac, const std::uint8_t*)

#define SPY_READ(function, type) SPY(function, type, failure_of(name_of(table, field)), false)
SPY_READ(hab_get_bool, bool*)
SPY_READ(hab_get_ipv4, std::uint8_t*)
SPY_READ(hab_get_mac, std::uint8_t*)

void hab_destroy(hab_session* session) {
    static const auto next = behind(hab_destroy, "hab_destroy");
    if (session == nullptr) {
        ADD_FAILURE() << "hab_destroy(NULL): a platform's library may not take it";
    }
    next(session);
}

int hab_get_ascii(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length) {
    static const auto next = behind(hab_get_ascii, "hab_get_ascii");
    const int failure = failure_of(name_of(table, field));
    if (failure != HAB_OK) {
        *buffer = '\0';
        return failure;
    }
    return next(session, table, row, field, buffer, length);
}

}  // extern "C"

}  // namespace dro_test

#include "store_spy.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <habhost.h>
#include <hablib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <sstream>

namespace dro_test {
namespace {

// The injected status of this field's reads and writes.
int failure_of(const char* table, const char* field) {
    return StoreSpy::seen()->failures[std::string(table) + "." + field];
}

// Records a write and returns its injected status.
int note_write(const char* table, const char* field, const std::string& value) {
    const std::string name = std::string(table) + "." + field;
    auto seen = StoreSpy::seen();
    if (seen->active) {
        seen->writes.push_back(name + "=" + value);
    }
    const std::function<void()> action = seen->actions[name];
    seen.reset();
    if (action) {
        action();
    }
    return failure_of(table, field);
}

// True when the write leaves the value unchanged and only changes are reported.
bool dropped(hab_session* session, const char* table, int row, const char* field, const std::string& value) {
    const bool changesOnly = StoreSpy::seen()->changesOnly;
    std::array<char, 8192> held{};
    return changesOnly && hab_host_get_text(session, table, row, field, held.data(), held.size()) == HAB_OK &&
           value == held.data();
}

// Returns the store library's function of this name, which a function here replaces.
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

std::shared_ptr<StoreSpy::Seen> StoreSpy::seen() {
    static std::mutex mutex;
    static auto* const all = new Seen;  // agent threads may outlive main's statics
    mutex.lock();
    return {all, [](Seen*) { mutex.unlock(); }};
}

std::vector<std::string> StoreSpy::writes(std::string_view start) const {
    std::vector<std::string> matching = seen()->writes;
    std::erase_if(matching, [start](const std::string& write) { return !write.starts_with(start); });
    return matching;
}

// These definitions in the test program take precedence over the library's functions of the same names.
extern "C" {

// `failure` is the injected status, `passed` the names of the parameters that follow the field.
#define SPY(function, failure, unchanged, passed, ...)                                                     \
    int function(hab_session* session, const char* table, int row, const char* field, __VA_ARGS__) {       \
        static const auto next = behind(function, #function);                                              \
        const int status = failure;                                                                        \
        return status != HAB_OK || (unchanged) ? status : next(session, table, row, field, UNPACK passed); \
    }
#define UNPACK(...) __VA_ARGS__
#define SPY_WRITE(function, type)                                                                                \
    SPY(function, note_write(table, field, as_text(value)), dropped(session, table, row, field, as_text(value)), \
        (value), type value)
SPY_WRITE(hab_set_ascii, const char*)
SPY_WRITE(hab_set_string, const char*)
SPY_WRITE(hab_set_enum, const char*)
SPY_WRITE(hab_set_bool, bool)
SPY_WRITE(hab_set_int, std::int32_t)
SPY_WRITE(hab_set_uint, std::uint32_t)
SPY_WRITE(hab_set_mac, const std::uint8_t*)

SPY(hab_get_bool, failure_of(table, field), false, (value), bool* value)
SPY(hab_get_ipv4, failure_of(table, field), false, (value), std::uint8_t* value)
SPY(hab_get_mac, failure_of(table, field), false, (value), std::uint8_t* value)
SPY(hab_get_ascii, (*buffer = '\0', failure_of(table, field)), false, (buffer, length), char* buffer, size_t length)

void hab_destroy(hab_session* session) {
    static const auto next = behind(hab_destroy, "hab_destroy");
    if (session == nullptr) {
        ADD_FAILURE() << "hab_destroy(NULL): a platform's library may not accept it";
    }
    next(session);
}

}  // extern "C"

}  // namespace dro_test

// store.h - a store session with values as text, and waits for changes. Any thread may use a Store; handlers run on the
// session's delivery thread.
#pragma once

#include <habhost.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// A field of the store. `row` applies to the device tables.
struct Field {
    const char* table;
    const char* name;
    int row = 0;

    constexpr Field at(int wantedRow) const { return {table, name, wantedRow}; }
    bool is(std::string_view noticeTable, std::string_view noticeField) const {
        return noticeTable == table && noticeField == name;
    }
};

struct Value {
    Field field;
    std::string text;
};

using Mac = std::array<std::uint8_t, 6>;
std::string macText(const Mac& mac);

// Creates a store file with every value at its default. The file must not exist. Throws std::runtime_error.
void createStore(const std::string& path);

class Store {
 public:
    using Handler = std::function<void(std::string_view table, int row, std::string_view field)>;

    // Opens a session of the store in HAB_STORE. Throws std::runtime_error.
    Store();
    // Waits for a running handler. Must not be called from a handler.
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // The value as text: numbers in decimal, bool as true or false, a MAC in upper case. Throws std::runtime_error.
    std::string get(const Field& field) const;
    bool isTrue(const Field& field) const { return get(field) == "true"; }
    std::uint32_t number(const Field& field) const;
    Mac mac(const Field& field) const;

    // Writes texts in the format of get(); several values are written atomically. Throws std::runtime_error.
    void set(const Field& field, const std::string& text);
    void set(const std::vector<Value>& values);

    // Replaces the handler, waiting for a running one, and subscribes to the tables.
    void follow(const std::set<std::string>& tables, Handler handler);

    // Waits until `holds` returns true. Calls it again on every notice of the tables. Returns false on timeout.
    bool await(const std::set<std::string>& tables, const std::function<bool()>& holds,
               std::chrono::milliseconds timeout);
    bool await(const Field& field, const std::string& value, std::chrono::milliseconds timeout);

    // Calls `act` and waits for the next notice of the field, whatever its value. Replaces and removes the handler.
    bool awaitWrite(const Field& field, const std::function<void()>& act, std::chrono::milliseconds timeout);

 private:
    struct Notices;

    void subscribe(const std::set<std::string>& tables);

    void check(const char* what, const Field& field, int status) const;

    hab_session* session_;
    Notices* notices_;  // never freed: the library may still call the handler after the session is closed
};

}  // namespace lab

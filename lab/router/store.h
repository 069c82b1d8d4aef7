// store.h - a session of the router's store with its owner, values as text, and waiting for what others write.
// Any thread may use a Store; handlers run on its session's delivery thread.
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

// A field of the store; `row` applies to the device tables.
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

// Makes a store file with every value at its default; the file must not exist. Throws std::runtime_error.
void createStore(const std::string& path);

class Store {
 public:
    using Handler = std::function<void(std::string_view table, int row, std::string_view field)>;

    // Opens a session of the store that HAB_STORE names. Throws std::runtime_error.
    Store();
    // Returns when no handler of it runs any more; not to be called from one.
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // The value as text: numbers in decimal, bool as true or false, a MAC in upper case. Throws std::runtime_error.
    std::string get(const Field& field) const;
    bool isTrue(const Field& field) const { return get(field) == "true"; }
    std::uint32_t number(const Field& field) const;
    Mac mac(const Field& field) const;

    // Writes texts of the form that get() gives; several go in together or not at all. Throws std::runtime_error.
    void set(const Field& field, const std::string& text);
    void set(const std::vector<Value>& values);

    // Installs the one handler and asks for the notices of the tables.
    void follow(const std::set<std::string>& tables, Handler handler);

    // Waits until `holds` or the time is over, looking again at every notice of the tables. Returns whether it held.
    bool await(const std::set<std::string>& tables, const std::function<bool()>& holds,
               std::chrono::milliseconds timeout);
    bool await(const Field& field, const std::string& value, std::chrono::milliseconds timeout);

    // Calls `act` and waits for the next notice of a field, whatever is written. Takes the handler's place.
    bool awaitWrite(const Field& field, const std::function<void()>& act, std::chrono::milliseconds timeout);

 private:
    struct Notices;

    void subscribe(const std::set<std::string>& tables);

    void check(const char* what, const Field& field, int status) const;

    hab_session* session_;
    Notices* notices_;  // never freed: the library may still be entering the handler when the session is gone
};

}  // namespace lab

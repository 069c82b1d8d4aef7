// habctl's arguments: a JSON object is a file to load, anything else is ADDRESS=VALUE.
#include <algorithm>
#include <array>

#include "commands.h"
#include "input.h"
#include "store.h"

namespace {

bool write(fuzz::Store& store, const std::vector<habctl::OwnedValue>& values) {
    std::vector<hab_host_value> views(1);  // keeps data() non-null for an empty list
    for (const habctl::OwnedValue& value : values) {
        views.push_back(value.view());
    }
    return hab_host_set_all(store.session(), views.data() + 1, values.size(), nullptr) == HAB_OK;
}

// A loaded and dumped file loads again and yields the same dump.
void load(fuzz::Store& store, const std::string& text) {
    static const std::vector<habctl::TableInfo> tables = habctl::describeTables(store.session());
    std::vector<habctl::OwnedValue> values;
    if (habctl::valuesFrom(text, tables, values) != HAB_OK || !write(store, values)) {
        return;
    }
    const std::vector<fuzz::Held> loaded = store.changed();
    values.clear();
    for (const fuzz::Held& value : loaded) {
        values.push_back({value.table, value.row, value.field, value.text});
    }
    const std::string dumped = habctl::jsonFrom(values, tables);
    if (dumped.find("\xEF\xBF\xBD") != std::string::npos) {
        return;  // bytes that JSON cannot represent were replaced
    }
    store.reset();
    values.clear();
    fuzz::require(habctl::valuesFrom(dumped, tables, values) == HAB_OK && write(store, values));
    fuzz::require(store.changed() == loaded);
}

// A parsed address prints and parses to itself. An accepted value is one line and reads back as a valid value.
void set(const fuzz::Store& store, const std::string& text) {
    const std::size_t end = text.find('=');
    const habctl::Address address = habctl::addressFrom(text.substr(0, end));
    const std::string wanted = end == std::string::npos ? "" : text.substr(end + 1);
    const hab_host_value value{address.table.c_str(), address.row, address.field.c_str(), wanted.c_str()};
    if (address.field.empty()) {
        return;
    }
    const habctl::Address again = habctl::addressFrom(habctl::textOf(value));
    fuzz::require(again.table == address.table && again.field == address.field && again.row == address.row);
    const auto put = [&](const char* held) {
        return hab_host_set_text(store.session(), value.table, value.row, value.field, held) == HAB_OK;
    };
    if (!put(value.text)) {
        return;
    }
    const std::string line = habctl::valueLine(value);
    const auto control = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
    fuzz::require(std::count_if(line.begin(), line.end(), control) == 1 && line.back() == '\n');
    const auto get = [&] {
        std::array<char, HAB_HOST_TEXT_SIZE> held{};
        fuzz::require(hab_host_get_text(store.session(), value.table, value.row, value.field, held.data(),
                                        held.size()) == HAB_OK);
        return held;
    };
    const auto first = get();
    fuzz::require(put(first.data()) && get() == first);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::Store store;
    store.reset();
    const std::string text = fuzz::texts(fuzz::bytes(data, size)).front();
    try {
        if (text.starts_with('{')) {
            load(store, text);
        } else {
            set(store, text);
        }
    } catch (const habctl::UsageError&) {
        return 0;  // habctl reports the error and exits with status 64
    }
    return 0;
}

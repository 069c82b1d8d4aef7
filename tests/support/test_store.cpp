#include "test_store.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace dro_test {
namespace {

struct Address {
    std::string table;
    std::string field;
    int row = 0;
};

Address parse(const std::string& text) {
    const auto dot = text.find('.');
    const auto at = std::min(text.find('@'), text.size());
    const int row = at < text.size() ? std::stoi(text.substr(at + 1)) : 0;
    return {text.substr(0, dot), text.substr(dot + 1, at - dot - 1), row};
}

void require(int status, const std::string& what) {
    if (status != HAB_OK) {
        throw std::runtime_error(what + ": " + hab_error_string(status));
    }
}

}  // namespace

StoreFolder::StoreFolder() {
    std::string folder = std::filesystem::temp_directory_path() / "droagent-test-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    folder_ = folder;
    setenv("HAB_STORE", path().c_str(), 1);
    require(hab_host_create(path().c_str(), false), "making the store");
}

StoreFolder::~StoreFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::string StoreFolder::sql(const std::string& statements) const {
    sqlite3* opened = nullptr;
    sqlite3_open(path().c_str(), &opened);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(opened, sqlite3_close);
    std::string last;
    const auto note = [](void* text, int columns, char** values, char**) {
        *static_cast<std::string*>(text) = columns > 0 && values[0] != nullptr ? values[0] : "";
        return 0;
    };
    if (sqlite3_exec(opened, statements.c_str(), note, &last, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(opened));
    }
    return last;
}

std::string TestStore::get(const std::string& address) const {
    const Address place = parse(address);
    std::array<char, HAB_HOST_TEXT_SIZE> text{};
    require(hab_host_get_text(session_.get(), place.table.c_str(), place.row, place.field.c_str(), text.data(),
                              text.size()),
            address);
    return text.data();
}

void TestStore::set_all(const std::vector<std::pair<std::string, std::string>>& values) {
    std::vector<Address> places;
    places.reserve(values.size());
    std::vector<hab_host_value> rows;
    rows.reserve(values.size() + 1);  // keeps data() non-null for an empty list
    for (const auto& [address, value] : values) {
        const Address& place = places.emplace_back(parse(address));
        rows.push_back({place.table.c_str(), place.row, place.field.c_str(), value.c_str()});
    }
    std::size_t failed = 0;
    require(hab_host_set_all(session_.get(), rows.data(), rows.size(), &failed),
            failed < values.size() ? values[failed].first : "the store");
}

void set_identity(TestStore& store) {
    store.set_all({{"General.DeviceModel", "RX-1"},
                   {"General.DeviceName", "Home router"},
                   {"General.FwRevision", "7.8.9"},
                   {"General.FSN", "FSN0123456789"},
                   {"General.DefaultMAC", "02:00:00:00:00:0A"},
                   {"JorvagentCfg.jorv_agent_id", "jorv-1"},
                   {"JorvagentCfg.jorv_agent_claim_code", "claim-1"},
                   {"dalLogCfg.DroagentLogMask", "7"}});
}

std::string file_text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace dro_test

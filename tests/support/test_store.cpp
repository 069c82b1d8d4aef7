#include "test_store.h"

#include <array>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string_view>

#include "wait.h"

namespace dro_test {
namespace {

constexpr const char* kFenceTable = "DalModuleVersion";  // written once by the agent, watched by nobody
constexpr const char* kFenceField = "DroagentVersion";

struct Address {
    std::string table;
    std::string field;
    int row = 0;
};

Address parse(const std::string& text) {
    const auto dot = text.find('.');
    const auto at = text.find('@');
    Address address{text.substr(0, dot), text.substr(dot + 1, at == std::string::npos ? at : at - dot - 1)};
    if (at != std::string::npos) {
        address.row = std::stoi(text.substr(at + 1));
    }
    return address;
}

void require(int status, const std::string& what) {
    if (status != HAB_OK) {
        throw std::runtime_error(what + ": " + hab_error_string(status));
    }
}

std::string read_text(hab_session* session, const char* table, int row, const char* field) {
    std::array<char, HAB_HOST_TEXT_SIZE> text{};
    require(hab_host_get_text(session, table, row, field, text.data(), text.size()), std::string(table) + "." + field);
    return text.data();
}

}  // namespace

TestStore::TestStore() {
    std::string folder = std::filesystem::temp_directory_path() / "droagent-test-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    folder_ = folder;
    setenv("HAB_STORE", path().c_str(), 1);
    require(hab_host_create(path().c_str(), false), "making the store");
    session_.reset(hab_init());
}

TestStore::~TestStore() {
    session_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::string TestStore::get(const std::string& address) const {
    const Address place = parse(address);
    return read_text(session_.get(), place.table.c_str(), place.row, place.field.c_str());
}

void TestStore::set(const std::string& address, const std::string& value) {
    const Address place = parse(address);
    require(hab_host_set_text(session_.get(), place.table.c_str(), place.row, place.field.c_str(), value.c_str()),
            address);
}

void TestStore::set_all(const std::vector<std::pair<std::string, std::string>>& values) {
    std::vector<Address> places;
    places.reserve(values.size());
    std::vector<hab_host_value> rows;
    for (const auto& [address, value] : values) {
        const Address& place = places.emplace_back(parse(address));
        rows.push_back({place.table.c_str(), place.row, place.field.c_str(), value.c_str()});
    }
    std::size_t failed = 0;
    require(hab_host_set_all(session_.get(), rows.data(), rows.size(), &failed),
            failed < values.size() ? values[failed].first : "the store");
}

bool TestStore::wait_for(const std::string& address, const std::string& value) const {
    return eventually([&] { return get(address) == value; });
}

struct StoreWatch::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> writes;
    int fences = 0;
    hab_session* session = nullptr;

    // Kept for good: a notice may still be under way when its session has been destroyed.
    static State* make() {
        static std::vector<std::unique_ptr<State>>& all = *new std::vector<std::unique_ptr<State>>;
        return all.emplace_back(std::make_unique<State>()).get();
    }
};

StoreWatch::StoreWatch(std::initializer_list<const char*> tables) : state_(State::make()), session_(hab_init()) {
    state_->session = session_.get();
    hab_subscribe_cb(session_.get(), on_notice, state_);
    for (const char* table : tables) {
        require(hab_subscribe(session_.get(), table, 1), table);
    }
    require(hab_subscribe(session_.get(), kFenceTable, 1), kFenceTable);
}

StoreWatch::~StoreWatch() = default;

void StoreWatch::on_notice(const char* table, int row, const char* field, void* self) {
    auto& state = *static_cast<State*>(self);
    std::array<char, HAB_HOST_TEXT_SIZE> value{};
    hab_host_get_text(state.session, table, row, field, value.data(), value.size());
    const std::lock_guard lock(state.mutex);
    if (std::string_view(table) == kFenceTable) {
        ++state.fences;
    } else {
        const std::string place = row == 0 ? "" : "@" + std::to_string(row);
        state.writes.push_back(std::string(table) + "." + field + place + "=" + value.data());
    }
    state.changed.notify_all();
}

std::vector<std::string> StoreWatch::take() {
    // Notices come in commit order: once this write's has come, all before it have. It keeps the value that is there.
    const std::string kept = read_text(session_.get(), kFenceTable, 0, kFenceField);
    std::unique_lock lock(state_->mutex);
    const int fence = state_->fences + 1;
    lock.unlock();
    require(hab_set_string(session_.get(), kFenceTable, 0, kFenceField, kept.c_str()), kFenceTable);
    lock.lock();
    if (!state_->changed.wait_for(lock, kPatience, [&] { return state_->fences >= fence; })) {
        throw std::runtime_error("a notice is missing");
    }
    return std::exchange(state_->writes, {});
}

}  // namespace dro_test

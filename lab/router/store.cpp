#include "store.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace lab {

struct Store::Notices {
    std::mutex handling;  // held while the handler runs; lets the owner wait for it
    Handler handler;

    std::mutex mutex;
    std::condition_variable came;
    std::size_t count = 0;
    std::set<std::string> tables;

    void enter(const char* table, int row, const char* fieldName) {
        {
            const std::lock_guard lock(handling);
            if (handler) {
                try {
                    handler(table, row, fieldName);
                } catch (const std::exception& error) {
                    std::fprintf(stderr, "drolab: %s\n", error.what());
                }
            }
        }
        const std::lock_guard lock(mutex);
        ++count;
        came.notify_all();
    }

    static Notices* make() {
        static std::mutex guard;
        static auto* const all = new std::vector<std::unique_ptr<Notices>>;
        const std::lock_guard lock(guard);
        return all->emplace_back(std::make_unique<Notices>()).get();
    }
};

std::string macText(const Mac& mac) {
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return text.data();
}

void createStore(const std::string& path) {
    if (const int status = hab_host_create(path.c_str(), false); status != HAB_OK) {
        throw std::runtime_error("cannot create the store " + path + ": " + hab_error_string(status));
    }
}

Store::Store() : session_(hab_init()), notices_(Notices::make()) {
    if (session_ == nullptr) {
        throw std::runtime_error("cannot open the store");
    }
    hab_subscribe_cb(
        session_,
        [](const char* table, int row, const char* name, void* context) {
            static_cast<Notices*>(context)->enter(table, row, name);
        },
        notices_);
}

Store::~Store() {
    hab_destroy(session_);
    const std::lock_guard lock(notices_->handling);
    notices_->handler = nullptr;
}

void Store::check(const char* what, const Field& field, int status) const {
    if (status != HAB_OK) {
        throw std::runtime_error(std::string("cannot ") + what + " " + field.table + "." + field.name + ": " +
                                 hab_error_string(status));
    }
}

std::string Store::get(const Field& field) const {
    std::array<char, HAB_HOST_TEXT_SIZE> text{};
    check("read", field, hab_host_get_text(session_, field.table, field.row, field.name, text.data(), text.size()));
    return text.data();
}

std::uint32_t Store::number(const Field& field) const {
    std::uint32_t value = 0;
    check("read", field, hab_get_uint(session_, field.table, field.row, field.name, &value));
    return value;
}

Mac Store::mac(const Field& field) const {
    Mac value{};
    check("read", field, hab_get_mac(session_, field.table, field.row, field.name, value.data()));
    return value;
}

void Store::set(const Field& field, const std::string& text) {
    check("write", field, hab_host_set_text(session_, field.table, field.row, field.name, text.c_str()));
}

void Store::set(const std::vector<Value>& values) {
    std::vector<hab_host_value> all;
    all.reserve(values.size());
    for (const auto& [field, text] : values) {
        all.push_back({field.table, field.row, field.name, text.c_str()});
    }
    std::size_t refused = 0;
    const int status = hab_host_set_all(session_, all.data(), all.size(), &refused);
    check("write", values.at(std::min(refused, values.size() - 1)).field, status);
}

void Store::subscribe(const std::set<std::string>& tables) {
    for (const auto& table : tables) {
        {
            const std::lock_guard lock(notices_->mutex);
            if (!notices_->tables.insert(table).second) {
                continue;
            }
        }
        if (const int status = hab_subscribe(session_, table.c_str(), 1); status != HAB_OK) {
            throw std::runtime_error("cannot watch " + table + ": " + hab_error_string(status));
        }
    }
}

void Store::follow(const std::set<std::string>& tables, Handler handler) {
    {
        const std::lock_guard lock(notices_->handling);
        notices_->handler = std::move(handler);
    }
    subscribe(tables);
}

bool Store::await(const std::set<std::string>& tables, const std::function<bool()>& holds,
                  std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    subscribe(tables);
    std::unique_lock lock(notices_->mutex);
    for (;;) {
        const std::size_t seen = notices_->count;
        lock.unlock();
        if (holds()) {
            return true;
        }
        lock.lock();
        if (!notices_->came.wait_until(lock, deadline, [&] { return notices_->count != seen; })) {
            return false;
        }
    }
}

bool Store::await(const Field& field, const std::string& value, std::chrono::milliseconds timeout) {
    return await(
        {field.table}, [&] { return get(field) == value; }, timeout);
}

bool Store::awaitWrite(const Field& field, const std::function<void()>& act, std::chrono::milliseconds timeout) {
    // Shared with the handler, which may still be running when this call times out.
    const auto written = std::make_shared<std::atomic<bool>>(false);
    follow({field.table}, [written, field](std::string_view table, int row, std::string_view name) {
        if (field.is(table, name) && row == field.row) {
            *written = true;
        }
    });
    act();
    const bool came = await(
        {field.table}, [&] { return written->load(); }, timeout);
    follow({}, nullptr);
    return came;
}

}  // namespace lab

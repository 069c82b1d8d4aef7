// The typed operations of hablib.h: argument checks, then a call to Session.
#include <algorithm>
#include <utility>

#include "call.h"
#include "hablib.h"
#include "session.h"

namespace hab {

namespace {

int readValue(hab_session* handle, const Place& place, Type type, bool wanted, Value& value) {
    return withField(handle, place, wanted, [&](Session& session, const Field& field) {
        return field.type == type ? session.read(field, place.row, value) : HAB_WRONG_TYPE;
    });
}

int writeValue(hab_session* handle, const Place& place, Type type, bool given, Value value) {
    return withField(handle, place, given, [&](Session& session, const Field& field) {
        if (field.type != type) {
            return HAB_WRONG_TYPE;
        }
        if (const int refused = accept(type, field.longest, value); refused != HAB_OK) {
            return refused;
        }
        const Change change{&field, place.row, std::move(value)};
        return session.write({&change, 1});
    });
}

int readText(hab_session* handle, const Place& place, Type type, char* buffer, std::size_t length) {
    return intoBuffer(buffer, length, [&](std::string& text) {
        Value value;
        const int status = readValue(handle, place, type, true, value);
        text = std::move(value.bytes);
        return status;
    });
}

int writeText(hab_session* handle, const Place& place, Type type, const char* text) {
    return guarded([&] { return writeValue(handle, place, type, text != nullptr, {0, text == nullptr ? "" : text}); });
}

template <class Number>
int readNumber(hab_session* handle, const Place& place, Type type, Number* number) {
    return guarded([&] {
        Value value;
        const int status = readValue(handle, place, type, number != nullptr, value);
        if (status == HAB_OK) {
            *number = static_cast<Number>(value.number);
        }
        return status;
    });
}

int writeNumber(hab_session* handle, const Place& place, Type type, std::int64_t number) {
    return guarded([&] { return writeValue(handle, place, type, true, {number, {}}); });
}

int readAddress(hab_session* handle, const Place& place, Type type, std::uint8_t* address) {
    return guarded([&] {
        Value value;
        const int status = readValue(handle, place, type, address != nullptr, value);
        if (status == HAB_OK) {
            std::copy(value.bytes.begin(), value.bytes.end(), address);
        }
        return status;
    });
}

}  // namespace

}  // namespace hab

using hab::Type;

hab_session* hab_init(void) {
    try {
        hab::OpenedStore opened = hab::openStore(hab::storePath());
        if (!opened.store) {
            return nullptr;
        }
        return hab::registerSession(std::make_shared<hab::Session>(opened.store, std::move(opened.connection)));
    } catch (const std::exception& error) {
        hab::complain(hab::storePath(), error.what());
        return nullptr;
    }
}

void hab_destroy(hab_session* session) {
    hab::guarded([&] {
        if (const auto taken = hab::takeSession(session); taken) {
            taken->close();
        }
        return HAB_OK;
    });
}

int hab_get_ascii(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length) {
    return hab::readText(session, {table, row, field}, Type::kAscii, buffer, length);
}

int hab_get_string(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length) {
    return hab::readText(session, {table, row, field}, Type::kString, buffer, length);
}

int hab_get_enum(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length) {
    return hab::readText(session, {table, row, field}, Type::kEnum, buffer, length);
}

int hab_get_bool(hab_session* session, const char* table, int row, const char* field, bool* value) {
    return hab::readNumber(session, {table, row, field}, Type::kBool, value);
}

int hab_get_int(hab_session* session, const char* table, int row, const char* field, int32_t* value) {
    return hab::readNumber(session, {table, row, field}, Type::kInt, value);
}

int hab_get_uint(hab_session* session, const char* table, int row, const char* field, uint32_t* value) {
    return hab::readNumber(session, {table, row, field}, Type::kUint, value);
}

int hab_get_ipv4(hab_session* session, const char* table, int row, const char* field, uint8_t address[4]) {
    return hab::readAddress(session, {table, row, field}, Type::kIpv4, address);
}

int hab_get_mac(hab_session* session, const char* table, int row, const char* field, uint8_t mac[6]) {
    return hab::readAddress(session, {table, row, field}, Type::kMac, mac);
}

int hab_set_ascii(hab_session* session, const char* table, int row, const char* field, const char* text) {
    return hab::writeText(session, {table, row, field}, Type::kAscii, text);
}

int hab_set_string(hab_session* session, const char* table, int row, const char* field, const char* text) {
    return hab::writeText(session, {table, row, field}, Type::kString, text);
}

int hab_set_enum(hab_session* session, const char* table, int row, const char* field, const char* text) {
    return hab::writeText(session, {table, row, field}, Type::kEnum, text);
}

int hab_set_bool(hab_session* session, const char* table, int row, const char* field, bool value) {
    return hab::writeNumber(session, {table, row, field}, Type::kBool, value ? 1 : 0);
}

int hab_set_int(hab_session* session, const char* table, int row, const char* field, int32_t value) {
    return hab::writeNumber(session, {table, row, field}, Type::kInt, value);
}

int hab_set_uint(hab_session* session, const char* table, int row, const char* field, uint32_t value) {
    return hab::writeNumber(session, {table, row, field}, Type::kUint, value);
}

int hab_set_mac(hab_session* session, const char* table, int row, const char* field, const uint8_t mac[6]) {
    return hab::guarded([&] {
        const std::string bytes = mac == nullptr ? std::string() : std::string(mac, mac + 6);
        return hab::writeValue(session, {table, row, field}, Type::kMac, mac != nullptr, {0, bytes});
    });
}

int hab_string2mac(const char* text, uint8_t mac[6]) {
    return hab::guarded([&] {
        const std::optional<std::string> bytes = text == nullptr || mac == nullptr ? std::nullopt : hab::macFrom(text);
        if (!bytes) {
            return HAB_INVALID;
        }
        std::copy(bytes->begin(), bytes->end(), mac);
        return HAB_OK;
    });
}

int hab_subscribe(hab_session* session, const char* table, int whole_table) {
    return hab::withSession(session, table != nullptr && whole_table == 1, [&](hab::Session& open) {
        const hab::Table* found = open.schema().table(table);
        return found == nullptr ? HAB_NOSUCH_ITEM : open.subscribe(*found);
    });
}

int hab_subscribe_cb(hab_session* session, hab_notice_handler handler, void* context) {
    return hab::withSession(session, handler != nullptr,
                            [&](hab::Session& open) { return open.setHandler(handler, context); });
}

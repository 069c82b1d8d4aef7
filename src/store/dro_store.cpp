#include "dro_store.h"

namespace dro {
namespace {

template <typename Value>
Value read_value(int (*reader)(hab_session*, const char*, int, const char*, Value*), const Field& field, Value initial,
                 const Where& where) {
    Value value = initial;
    log_store_error(reader(dal_get_handle(), field.table, field.row, field.name, &value), where);
    return value;
}

template <typename Argument>
int write_value(int (*writer)(hab_session*, const char*, int, const char*, Argument), const Field& field,
                Argument value, const Where& where) {
    const int status = writer(dal_get_handle(), field.table, field.row, field.name, value);
    log_store_error(status, where);
    return status;
}

}  // namespace

bool read_bool(const Field& field, bool initial, Where where) {
    return read_value(hab_get_bool, field, initial, where);
}

std::int32_t read_int(const Field& field, std::int32_t initial, Where where) {
    return read_value(hab_get_int, field, initial, where);
}

std::uint32_t read_uint(const Field& field, std::uint32_t initial, Where where) {
    return read_value(hab_get_uint, field, initial, where);
}

int write_ascii(const Field& field, const char* text, Where where) {
    return write_value(hab_set_ascii, field, text, where);
}

int write_string(const Field& field, const char* text, Where where) {
    return write_value(hab_set_string, field, text, where);
}

int write_enum(const Field& field, const char* text, Where where) {
    return write_value(hab_set_enum, field, text, where);
}

int write_bool(const Field& field, bool value, Where where) {
    return write_value(hab_set_bool, field, value, where);
}

int write_int(const Field& field, std::int32_t value, Where where) {
    return write_value(hab_set_int, field, value, where);
}

int write_uint(const Field& field, std::uint32_t value, Where where) {
    return write_value(hab_set_uint, field, value, where);
}

int write_mac(const Field& field, const Mac& mac, Where where) {
    return write_value(hab_set_mac, field, mac.data(), where);
}

std::optional<Mac> parse_mac(const char* text) {
    Mac mac{};
    if (hab_string2mac(text, mac.data()) != 0) {
        return std::nullopt;
    }
    return mac;
}

FixedText<18> mac_text(const Mac& mac) {
    FixedText<18> text;
    text.format("%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

int on_change(const Field& field, ChangeHandler handler) {
    return dal_call_on_change(field.table, field.name, handler, nullptr);
}

}  // namespace dro

// dro_store.h - typed reads and writes of single fields on the agent's shared store session. Any thread.
//
// A failed read is logged as an error at the caller's location and returns the content of its buffer: an empty text, or
// the given initial value. A failed write is logged the same way, and its status is returned.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "dro_dal.h"
#include "dro_text.h"

namespace dro {

// One field of the store.
struct Field {
    const char* table;
    const char* name;
    int row = 0;
};

using Mac = std::array<std::uint8_t, 6>;

// Signature shared by the reads of the three text types.
using TextReader = int (*)(hab_session*, const char*, int, const char*, char*, std::size_t);

template <std::size_t Capacity>
FixedText<Capacity> read_text(TextReader reader, const Field& field, Where where) {
    FixedText<Capacity> text;
    log_store_error(reader(dal_get_handle(), field.table, field.row, field.name, text.data(), Capacity), where);
    return text;
}

// `Capacity` includes the NUL. A value that does not fit is a failed read.
template <std::size_t Capacity>
FixedText<Capacity> read_ascii(const Field& field, Where where = DRO_HERE) {
    return read_text<Capacity>(hab_get_ascii, field, where);
}
template <std::size_t Capacity>
FixedText<Capacity> read_string(const Field& field, Where where = DRO_HERE) {
    return read_text<Capacity>(hab_get_string, field, where);
}
template <std::size_t Capacity>
FixedText<Capacity> read_enum(const Field& field, Where where = DRO_HERE) {
    return read_text<Capacity>(hab_get_enum, field, where);
}

bool read_bool(const Field& field, bool initial = false, Where where = DRO_HERE);
std::int32_t read_int(const Field& field, std::int32_t initial = 0, Where where = DRO_HERE);
std::uint32_t read_uint(const Field& field, std::uint32_t initial = 0, Where where = DRO_HERE);

int write_ascii(const Field& field, const char* text, Where where = DRO_HERE);
int write_string(const Field& field, const char* text, Where where = DRO_HERE);
int write_enum(const Field& field, const char* text, Where where = DRO_HERE);
int write_bool(const Field& field, bool value, Where where = DRO_HERE);
int write_int(const Field& field, std::int32_t value, Where where = DRO_HERE);
int write_uint(const Field& field, std::uint32_t value, Where where = DRO_HERE);
int write_mac(const Field& field, const Mac& mac, Where where = DRO_HERE);

// Parses six two-digit hexadecimal groups joined by colons. Returns `std::nullopt` for other text.
std::optional<Mac> parse_mac(const char* text);

// Formats `mac` as six upper-case hexadecimal pairs joined by colons.
FixedText<18> mac_text(const Mac& mac);

// Registers `handler` for `field`. Returns the result of dal_call_on_change, which most callers ignore.
int on_change(const Field& field, ChangeHandler handler);

}  // namespace dro

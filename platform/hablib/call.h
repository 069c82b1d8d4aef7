// call.h - shared start of every C function: check the arguments, find the session, let no exception escape.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "hablib.h"
#include "session.h"

namespace hab {

// The address of a value as the caller passes it.
struct Place {
    const char* table;
    int row;
    const char* field;
};

template <class Operation>
int guarded(Operation operation) noexcept {
    try {
        return operation();
    } catch (...) {
        return HAB_ERROR;  // out of memory or threads
    }
}

// Runs the operation on the handle's session. `valid` is the result of the caller's own argument checks.
template <class Operation>
int withSession(hab_session* handle, bool valid, Operation operation) noexcept {
    return guarded([&] {
        if (handle == nullptr || !valid) {
            return HAB_INVALID;
        }
        const std::shared_ptr<Session> session = findSession(handle);
        return session ? operation(*session) : HAB_SHUTDOWN;
    });
}

// As withSession, for an operation on one value. The operation also receives the field.
template <class Operation>
int withField(hab_session* handle, const Place& place, bool valid, Operation operation) noexcept {
    return withSession(handle, valid && place.table != nullptr && place.field != nullptr, [&](Session& session) {
        const Field* field = session.field(place.table, place.row, place.field);
        return field == nullptr ? HAB_NOSUCH_ITEM : operation(session, *field);
    });
}

// Runs a read that yields text and copies the text into the caller's buffer. On failure the buffer holds an empty text.
template <class Read>
int intoBuffer(char* buffer, std::size_t length, Read read) noexcept {
    if (buffer == nullptr || length == 0) {
        return HAB_INVALID;
    }
    *buffer = '\0';
    return guarded([&] {
        std::string text;
        const int status = read(text);
        if (status != HAB_OK) {
            return status;
        }
        if (text.size() >= length) {
            return HAB_TOO_LONG;
        }
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        return HAB_OK;
    });
}

}  // namespace hab

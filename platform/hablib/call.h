// call.h - what every function of the C interface does first: judge its arguments, find the session, and let nothing be
// thrown across.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "hablib.h"
#include "session.h"

namespace hab {

// Where a value is, as a caller names it.
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
        return HAB_ERROR;  // out of memory or of threads
    }
}

// Runs the operation on the session behind a handle. `valid` is what the caller found of the other arguments.
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

// The same for an operation on one value, which gets its field too.
template <class Operation>
int withField(hab_session* handle, const Place& place, bool valid, Operation operation) noexcept {
    return withSession(handle, valid && place.table != nullptr && place.field != nullptr, [&](Session& session) {
        const Field* field = session.field(place.table, place.row, place.field);
        return field == nullptr ? HAB_NOSUCH_ITEM : operation(session, *field);
    });
}

// Runs a read that gives a text, and copies the text into the caller's buffer; whatever fails leaves it empty.
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

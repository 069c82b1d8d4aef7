// dro_dal.h - the agent's shared store session, and the handlers of its change notices.
#pragma once

#include <hablib.h>

#include "dro_log.h"

namespace dro {

// Runs on the store library's delivery thread, one notice at a time; later notices wait until it returns. An exception
// is logged.
using ChangeHandler = void (*)(void* context);

// Opens the shared session and installs the notice handler. Returns 0, -1 (no memory for the handler table) or -2 (the
// session could not be opened). The cause is printed on standard error.
int dal_init();

// Returns the shared session, null before dal_init and after dal_destroy. Not owned by the caller. Any thread.
hab_session* dal_get_handle();

// Calls `handler` with `context` on every later change of table.field. The first 63 characters of "table.field" are
// significant. Returns 0, or 1 when the entry cannot be kept (out of memory, or the field already has a handler).
int dal_call_on_change(const char* table, const char* field, ChangeHandler handler, void* context);

// True when table.field has a handler and the subscription to its table succeeded. Any thread.
bool dal_is_watched(const char* table, const char* field);

// Closes the session and drops all handlers.
void dal_destroy();

// Returns the agent's own text for a store status, "Unknown" for an unknown number.
const char* error_message(int status);

// For a non-zero status: logs its text as a trace and prints it on standard output.
void print_err(int status);

// For a non-zero status: logs the store's text with the line, the table and the field.
void showHABErr(int line, const char* table, const char* field, int status);

// For a non-zero status: logs the store's text as an error at the caller's location.
void log_store_error(int status, Where where = DRO_HERE);

}  // namespace dro

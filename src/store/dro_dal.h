// dro_dal.h - the agent's one shared store session and the handlers called on its change notices.
#pragma once

#include <hablib.h>

#include "dro_log.h"

namespace dro {

// Called on the store library's delivery thread, one notice at a time: later ones wait until it returns. An exception
// is logged.
using ChangeHandler = void (*)(void* context);

// Opens the shared session and installs the notice handler. Returns 0, -1 (no memory for the handler table) or -2 (the
// session could not be opened); the reason goes to standard error.
int dal_init();

// The shared session: null before dal_init and after dal_destroy. Not owned by the caller. Any thread.
hab_session* dal_get_handle();

// Calls `handler` with `context` on every later change of table.field. Table, dot and field are matched on their first
// 63 characters. Returns 0, or 1 when the entry cannot be kept (no memory, or the field has a handler already).
int dal_call_on_change(const char* table, const char* field, ChangeHandler handler, void* context);

// True when table.field has a handler and its table could be subscribed. Any thread.
bool dal_is_watched(const char* table, const char* field);

// Closes the session and drops all handlers.
void dal_destroy();

// The agent's own text for a store status; "Unknown" for a number that is none.
const char* error_message(int status);

// For a non-zero status: logs its text as a trace and prints it on standard output.
void print_err(int status);

// For a non-zero status: logs the store's text with the place and the field that failed.
void showHABErr(int line, const char* table, const char* field, int status);

// For a non-zero status: logs the store's text as an error, in the caller's name.
void log_store_error(int status, Where where = DRO_HERE);

}  // namespace dro

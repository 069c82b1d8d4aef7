#include "dro_dal.h"

#include <array>
#include <atomic>
#include <cstring>
#include <exception>
#include <memory>
#include <new>

#include "dro_output.h"
#include "dro_stop.h"
#include "dro_sync.h"
#include "dro_text.h"

namespace dro {
namespace {

constexpr std::size_t kExpectedHandlers = 32;

struct CallbackEntry {
    FixedText<64> key;  // "table.field"
    ChangeHandler handler = nullptr;
    void* context = nullptr;
    bool subscribed = false;
};

std::atomic<hab_session*> g_session{nullptr};

// Notices may arrive while start-up is still adding handlers.
Mutex g_entriesLock;
sortedSet* g_entries DRO_GUARDED_BY(g_entriesLock) = nullptr;

int compare_keys(const void* left, const void* right) {
    return std::strcmp(static_cast<const CallbackEntry*>(left)->key.c_str(),
                       static_cast<const CallbackEntry*>(right)->key.c_str());
}

CallbackEntry* find_entry(const char* table, const char* field) DRO_REQUIRES(g_entriesLock) {
    CallbackEntry probe;
    probe.key.format("%s.%s", table, field);
    return g_entries != nullptr ? static_cast<CallbackEntry*>(sortedSet_find(g_entries, &probe)) : nullptr;
}

void on_notice(const char* table, int /*row*/, const char* field, void* /*context*/) {
    ChangeHandler handler = nullptr;
    void* context = nullptr;
    {
        const MutexLock lock(g_entriesLock);
        if (const CallbackEntry* entry = find_entry(table, field)) {
            handler = entry->handler;
            context = entry->context;
        }
    }
    if (handler == nullptr || stop_requested()) {
        return;
    }
    try {
        handler(context);
    } catch (const std::exception& failure) {
        LOG_ERROR("A change of %s.%s was not handled: %s\n", table, field, failure.what());
    }
}

void drop_entries() {
    const MutexLock lock(g_entriesLock);
    if (g_entries == nullptr) {
        return;
    }
    while (auto* first = static_cast<CallbackEntry*>(sortedSet_first(g_entries))) {
        sortedSet_rem(g_entries, first);
        const std::unique_ptr<CallbackEntry> owned(first);
    }
    sortedSet_destroy(g_entries);
    g_entries = nullptr;
}

}  // namespace

int dal_init() {
    {
        const MutexLock lock(g_entriesLock);
        g_entries = sortedSet_init(kExpectedHandlers, compare_keys);
        if (g_entries == nullptr) {
            print_stderr("Couldn't init jump table!");
            return -1;
        }
    }
    hab_session* session = hab_init();
    if (session == nullptr) {
        print_stderr("Couldn't init hab!");
        return -2;
    }
    g_session = session;
    log_store_error(hab_subscribe_cb(session, on_notice, nullptr));
    return 0;
}

hab_session* dal_get_handle() {
    return g_session;
}

int dal_call_on_change(const char* table, const char* field, ChangeHandler handler, void* context) {
    std::unique_ptr<CallbackEntry> entry(new (std::nothrow) CallbackEntry);
    if (!entry) {
        return 1;
    }
    entry->key.format("%s.%s", table, field);
    entry->handler = handler;
    entry->context = context;
    {
        const MutexLock lock(g_entriesLock);
        if (g_entries == nullptr || sortedSet_add(g_entries, entry.get()) != 0) {
            return 1;
        }
        static_cast<void>(entry.release());  // owned by the set until drop_entries
    }
    const int status = hab_subscribe(dal_get_handle(), table, 1);
    log_store_error(status);
    const MutexLock lock(g_entriesLock);
    if (CallbackEntry* kept = find_entry(table, field)) {
        kept->subscribed = status == HAB_OK;
    }
    return 0;
}

bool dal_is_watched(const char* table, const char* field) {
    const MutexLock lock(g_entriesLock);
    const CallbackEntry* entry = find_entry(table, field);
    return entry != nullptr && entry->subscribed;
}

void dal_destroy() {
    if (hab_session* session = g_session.exchange(nullptr)) {
        hab_destroy(session);
    }
    LOG_NOTICE("Destroy DAL SortedSet\n");
    drop_entries();
}

const char* error_message(int status) {
    constexpr std::array<const char*, 10> kTexts{
        "No Error",           "Connection Timeout", "HAB_SHUTDOWN ERROR",   "HAB_NOSUCH_ITEM ERROR",
        "HAB_TOO_LONG ERROR", "Not a Valid Input",  "HAB_WRONG_TYPE ERROR", "HAB_ENCODING ERROR",
        "HAB_ERROR",          "HAB Unknown Error"};
    return status >= 0 && status < static_cast<int>(kTexts.size()) ? kTexts[static_cast<std::size_t>(status)]
                                                                   : "Unknown";
}

void print_err(int status) {
    if (status != HAB_OK) {
        LOG_TRACE("Error: %s\n", error_message(status));
        FixedText<64> line;
        line.format("Error: %s\n", error_message(status));
        print_stdout(line.view());
    }
}

void showHABErr(int line, const char* table, const char* field, int status) {
    if (status != HAB_OK) {
        LOG_ERROR("Error : %s || line : %d || field : %s' || table : %s \n", hab_error_string(status), line, field,
                  table);
    }
}

void log_store_error(int status, Where where) {
    if (status != HAB_OK) {
        log_printf(kError, where.file, where.line, "%s\n", hab_error_string(status));
    }
}

}  // namespace dro

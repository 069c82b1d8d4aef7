#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <set>
#include <utility>

#include "commands.h"

namespace habctl {

namespace {

// The interval at which a watch checks that its store file is still in place.
constexpr timespec kCheckPause{1, 0};

struct Watch {
    hab_session* session;
    std::set<std::pair<std::string, std::string>> fields;
};

void onNotice(const char* table, int row, const char* field, void* context) {
    const auto* watch = static_cast<const Watch*>(context);
    if (!watch->fields.contains({table, field})) {
        return;
    }
    std::array<char, HAB_HOST_TEXT_SIZE> text{};
    if (complain(hab_host_get_text(watch->session, table, row, field, text.data(), text.size()), table) != HAB_OK) {
        return;
    }
    if (std::fputs(valueLine({table, row, field, text.data()}).c_str(), stdout) < 0) {
        kill(getpid(), SIGTERM);  // the reader is gone
    }
}

// Adds the fields of an address: one field, all fields of a table, or all fields for an empty address.
int choose(const std::vector<TableInfo>& tables, const std::string& text, Watch& watch) {
    const Address wanted = text.empty() ? Address{} : addressFrom(text);
    const std::size_t before = watch.fields.size();
    bool known = false;
    for (const TableInfo& table : tables) {
        const FieldInfo* named = table.field(wanted.field);
        for (const FieldInfo& field : table.fields) {
            if ((wanted.table.empty() || wanted.table == table.name) && (wanted.field.empty() || &field == named)) {
                watch.fields.emplace(table.name, field.name);
                known = true;
            }
        }
    }
    return known || watch.fields.size() > before ? HAB_OK : complain(HAB_NOSUCH_ITEM, text);
}

int subscribe(Watch& watch) {
    if (const int status = hab_subscribe_cb(watch.session, onNotice, &watch); status != HAB_OK) {
        return complain(status, "watch");
    }
    for (const auto& [table, field] : watch.fields) {
        if (const int status = hab_subscribe(watch.session, table.c_str(), 1); status != HAB_OK) {
            return complain(status, table);
        }
    }
    return HAB_OK;
}

}  // namespace

int watch(const std::vector<std::string>& addresses) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    // Declared before the session: a notice may still print while the session closes.
    static Watch watch{};
    static const Session session(hab_init());
    if (!session) {
        return HAB_ERROR;
    }
    watch.session = session.get();
    const std::vector<TableInfo> tables = describeTables(session.get());
    for (const std::string& address : addresses.empty() ? std::vector<std::string>{""} : addresses) {
        if (const int status = choose(tables, address, watch); status != HAB_OK) {
            return status;
        }
    }
    if (const int status = subscribe(watch); status != HAB_OK) {
        return status;
    }
    while (sigtimedwait(&ends, nullptr, &kCheckPause) < 0) {
        if (const int status = hab_host_check(session.get()); status != HAB_OK) {
            return status;
        }
    }
    return HAB_OK;
}

}  // namespace habctl

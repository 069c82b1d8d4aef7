// Corrupt store files. The input selects the changes to a valid file; the store is then opened, read completely,
// written and upgraded. Any status is allowed; no access may exceed a buffer.
#include <fuzzer/FuzzedDataProvider.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>

#include "input.h"
#include "test_store.h"

namespace {

// The cells to change. The last column selects rows: those whose value is a multiple of a number from the input.
constexpr std::array<const char*, 14> kCells{
    "hab_value SET field = ?1 WHERE field", "hab_value SET row = ?1 WHERE field",
    "hab_value SET value = ?1 WHERE field", "hab_value SET seq = ?1 WHERE field",
    "hab_journal SET seq = ?1 WHERE seq",   "hab_field SET id = ?1 WHERE id",
    "hab_field SET table_id = ?1 WHERE id", "hab_field SET name = ?1 WHERE id",
    "hab_field SET alias = ?1 WHERE id",    "hab_field SET type = ?1 WHERE id",
    "hab_field SET longest = ?1 WHERE id",  "hab_field SET initial = ?1 WHERE id",
    "hab_table SET name = ?1 WHERE id",     "hab_table SET rows = ?1 WHERE id"};

// One field of each type, the only ones in the store.
struct Kept {
    const char* table;
    const char* field;
    const char* text;
};
constexpr std::array<Kept, 8> kKept{{{"General", "FSN", "FSN0123456789"},
                                     {"General", "DeviceName", "Home router"},
                                     {"General", "DefaultMAC", "02:00:00:00:00:0A"},
                                     {"JorvagentCfg", "jorv_agent_registered", "1"},
                                     {"JorvagentCfg", "jorv_force_connection", "-1"},
                                     {"DroCfg", "claimState", "true"},
                                     {"Dilsignature", "DeviceIP", "192.0.2.7"},
                                     {"Dilsignature", "Devicestate", "UP"}}};

struct Bench {
    dro_test::StoreFolder folder;
    std::string path = folder.folder() + "/changed.db";
    std::string good;

    Bench() {
        {
            const dro_test::Session session(hab_init());
            for (const Kept& kept : kKept) {
                fuzz::require(hab_host_set_text(session.get(), kept.table, 0, kept.field, kept.text) == HAB_OK);
            }
        }
        good = dro_test::file_text(folder.path());  // complete, because no session has it open
        setenv("HAB_STORE", path.c_str(), 1);
    }
};

void change_bytes(FuzzedDataProvider& input, std::string& file) {
    while (input.remaining_bytes() > 0) {
        const auto at = input.ConsumeIntegralInRange<std::size_t>(0, file.size() - 1);
        const std::string bytes = input.ConsumeRandomLengthString(64);
        file.replace(at, std::min(bytes.size(), file.size() - at), bytes);
        if (input.ConsumeIntegral<std::uint8_t>() == 255) {
            file.resize(input.ConsumeIntegralInRange<std::size_t>(1, file.size()));
        }
    }
}

void put(const std::string& path, const std::string& file) {
    for (const char* part : {"", "-wal", "-shm", ".bell"}) {
        std::filesystem::remove(path + part);
    }
    std::ofstream(path, std::ios::binary) << file;
}

// Valid SQLite with invalid content: cells of any type and size in some rows of a table.
void change_cells(FuzzedDataProvider& input, const std::string& path) {
    sqlite3* opened = nullptr;
    sqlite3_open(path.c_str(), &opened);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(opened, sqlite3_close);
    sqlite3_exec(db.get(), "PRAGMA synchronous = OFF; BEGIN", nullptr, nullptr, nullptr);
    while (input.remaining_bytes() > 0) {
        const std::string sql = std::string("UPDATE OR IGNORE ") + input.PickValueInArray(kCells) + " % ?2 = 0";
        sqlite3_stmt* prepared = nullptr;
        sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &prepared, nullptr);
        const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> update(prepared, sqlite3_finalize);
        const auto kind = input.ConsumeIntegralInRange<int>(0, 2);
        sqlite3_bind_int(update.get(), 2, input.ConsumeIntegralInRange<int>(1, 31));
        const std::string bytes = kind == 0 ? "" : input.ConsumeRandomLengthString(5000);
        const auto length = static_cast<int>(bytes.size());
        if (kind == 0) {
            sqlite3_bind_int64(update.get(), 1, input.ConsumeIntegral<std::int64_t>());
        } else if (kind == 1) {
            sqlite3_bind_text(update.get(), 1, bytes.data(), length, SQLITE_STATIC);
        } else {
            sqlite3_bind_blob(update.get(), 1, bytes.data(), length, SQLITE_STATIC);
        }
        sqlite3_step(update.get());
    }
    sqlite3_exec(db.get(), "COMMIT", nullptr, nullptr, nullptr);
}

// Every kind of read, each into a buffer of exactly the required size.
void read_typed(hab_session* session, const char* table, int row, const char* field) {
    std::array<char, 16> text{};
    for (const auto read : {hab_get_ascii, hab_get_string, hab_get_enum, hab_host_get_text}) {
        const int status = read(session, table, row, field, text.data(), text.size());
        fuzz::require(std::find(text.begin(), text.end(), '\0') != text.end() && (status == HAB_OK || text[0] == '\0'));
    }
    std::array<std::uint8_t, 6> mac{};
    hab_get_mac(session, table, row, field, mac.data());
    std::array<std::uint8_t, 4> ipv4{};
    hab_get_ipv4(session, table, row, field, ipv4.data());
    std::int32_t number = 0;
    hab_get_int(session, table, row, field, &number);
    std::uint32_t natural = 0;
    hab_get_uint(session, table, row, field, &natural);
    bool flag = false;
    hab_get_bool(session, table, row, field, &flag);
}

void use(hab_session* session) {
    const auto one_field = [](const hab_host_field* field, void* context) {
        const int last = field->rows - 1;
        read_typed(static_cast<hab_session*>(context), field->table, last > 0 && last < 256 ? last : 0, field->name);
    };
    hab_host_describe(session, one_field, session);
    const auto one_value = [](const hab_host_value* value, void* context) {
        read_typed(static_cast<hab_session*>(context), value->table, value->row, value->field);
    };
    hab_host_each_value(session, one_value, session);
    for (const Kept& kept : kKept) {
        if (hab_host_set_text(session, kept.table, 0, kept.field, kept.text) == HAB_OK) {
            read_typed(session, kept.table, 0, kept.field);
        }
    }
    hab_host_check(session);
}

bool open_and_use() {
    const dro_test::Session session(hab_init());
    if (session) {
        use(session.get());
    }
    return session != nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Bench bench;
    FuzzedDataProvider input(data, size);
    std::string file = bench.good;
    if (input.ConsumeBool()) {
        put(bench.path, file);
        change_cells(input, bench.path);
    } else {
        change_bytes(input, file);
        put(bench.path, file);
    }
    if (!open_and_use()) {
        hab_host_upgrade(bench.path.c_str());
        open_and_use();
    }
    return 0;
}

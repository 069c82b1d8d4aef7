#include "schema_writer.h"

#include <cjson/cJSON.h>

#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hablib.h"
#include "schema.h"

namespace hab {

namespace {

// A field's number survives schema changes and is never reused: running programs identify fields by it.
constexpr const char* kLayout =
    "CREATE TABLE hab_table(id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, rows INTEGER NOT NULL,"
    " about TEXT NOT NULL, place INTEGER NOT NULL);"
    "CREATE TABLE hab_field(id INTEGER PRIMARY KEY AUTOINCREMENT, table_id INTEGER NOT NULL, name TEXT NOT NULL,"
    " alias TEXT NOT NULL, type TEXT NOT NULL, longest INTEGER NOT NULL, initial TEXT NOT NULL, about TEXT NOT NULL,"
    " place INTEGER NOT NULL, UNIQUE(table_id, name));"
    "CREATE TABLE hab_journal(seq INTEGER PRIMARY KEY, field INTEGER NOT NULL, row INTEGER NOT NULL,"
    " stamp INTEGER NOT NULL DEFAULT 0);";

// The journal starts with an entry of no field, whose stamp identifies the store while nothing has been written.
constexpr const char* kFirstEntry =
    "INSERT INTO hab_journal(seq, field, row, stamp) SELECT 0, 0, 0, random()"
    " WHERE NOT EXISTS (SELECT 1 FROM hab_journal)";

// Ordered by row first, because a row's values are read together.
constexpr const char* kValues =
    "CREATE TABLE hab_value(field INTEGER NOT NULL, row INTEGER NOT NULL, value NOT NULL, seq INTEGER NOT NULL,"
    " PRIMARY KEY(row, field)) WITHOUT ROWID";

struct DeleteJson {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

[[noreturn]] void misread(const std::string& what) {
    throw SqliteError(SQLITE_MISUSE, "the library's own schema is wrong at " + what);
}

std::string text(const cJSON* object, const char* member) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, member);
    return cJSON_IsString(item) ? item->valuestring : "";
}

std::int64_t number(const cJSON* object, const char* member) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, member);
    return cJSON_IsNumber(item) ? static_cast<std::int64_t>(item->valuedouble) : 0;
}

// Returns a field's default in the format that valueFrom reads.
std::string initialText(const cJSON* field) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(field, "default");
    if (cJSON_IsBool(item)) {
        return cJSON_IsTrue(item) ? "true" : "false";
    }
    return cJSON_IsNumber(item) ? std::to_string(number(field, "default")) : text(field, "default");
}

void writeField(Statement& write, std::int64_t table, std::int64_t place, const cJSON* field) {
    const std::string type = text(field, "type");
    const std::string initial = initialText(field);
    const std::string alias = text(field, "alias");
    const std::string about = text(field, "about");
    const std::int64_t longest = number(field, "longest");
    const std::optional<Type> known = typeNamed(type);
    const std::optional<Value> value = known ? valueFrom(*known, initial) : std::nullopt;
    if (!value || accept(*known, static_cast<std::size_t>(longest), *value) != HAB_OK) {
        misread(field->string);
    }
    write.bind(1, table).bindText(2, field->string).bindText(3, alias).bindText(4, type).bind(5, longest);
    write.bindText(6, initial).bindText(7, about).bind(8, place).finish();
}

std::int64_t writeTable(Connection& connection, std::int64_t place, const cJSON* table) {
    const std::string about = text(table, "about");
    const std::int64_t rows = number(table, "rows");
    if (rows < 1) {
        misread(table->string);
    }
    Statement write(connection,
                    "INSERT INTO hab_table(name, rows, about, place) VALUES(?1, ?2, ?3, ?4) ON CONFLICT(name) DO UPDATE"
                    " SET rows = excluded.rows, about = excluded.about, place = excluded.place");
    write.bindText(1, table->string).bind(2, rows).bindText(3, about).bind(4, place).finish();
    Statement find(connection, "SELECT id FROM hab_table WHERE name = ?1");
    find.bindText(1, table->string).next();
    return find.number(0);
}

}  // namespace

void writeLayout(Connection& connection) {
    connection.run(kLayout);
    connection.run(kValues);
    connection.run(kFirstEntry);
}

void renewLayout(Connection& connection) {
    if (connection.number("SELECT count(*) FROM pragma_table_info('hab_journal') WHERE name = 'stamp'") == 0) {
        connection.run("ALTER TABLE hab_journal ADD COLUMN stamp INTEGER NOT NULL DEFAULT 0");
        connection.run(kFirstEntry);
    }
    // Once ordered by field first, which was slow to read.
    if (connection.number("SELECT pk FROM pragma_table_info('hab_value') WHERE name = 'row'") != 1) {
        connection.run("ALTER TABLE hab_value RENAME TO hab_former");
        connection.run(kValues);
        connection.run(
            "INSERT INTO hab_value(field, row, value, seq) SELECT field, row, value, seq FROM hab_former;"
            " DROP TABLE hab_former");
    }
}

void writeSchema(Connection& connection) {
    const std::unique_ptr<cJSON, DeleteJson> schema(cJSON_Parse(kSchemaText));
    if (!schema) {
        throw std::bad_alloc();
    }
    const cJSON* tables = cJSON_GetObjectItemCaseSensitive(schema.get(), "tables");
    if (!cJSON_IsObject(tables)) {
        misread("its top");
    }
    // Tables and fields that keep this place are no longer in the schema.
    connection.run("UPDATE hab_table SET place = -1; UPDATE hab_field SET place = -1");
    Statement write(connection,
                    "INSERT INTO hab_field(table_id, name, alias, type, longest, initial, about, place)"
                    " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8) ON CONFLICT(table_id, name) DO UPDATE SET"
                    " alias = excluded.alias, type = excluded.type, longest = excluded.longest,"
                    " initial = excluded.initial, about = excluded.about, place = excluded.place");
    std::int64_t place = 0;
    const cJSON* table = nullptr;
    cJSON_ArrayForEach(table, tables) {
        const std::int64_t id = writeTable(connection, place++, table);
        const cJSON* field = nullptr;
        cJSON_ArrayForEach(field, cJSON_GetObjectItemCaseSensitive(table, "fields")) {
            writeField(write, id, place++, field);
        }
    }
    connection.run("DELETE FROM hab_table WHERE place = -1; DELETE FROM hab_field WHERE place = -1");
    connection.run(("PRAGMA user_version = " + std::to_string(kSchemaId)).c_str());
    // A random version makes the statements of running sessions notice this schema, also when a copy of the file with
    // another one is put in its place.
    std::uint32_t random = 0;
    sqlite3_randomness(sizeof random, &random);
    connection.run(("PRAGMA schema_version = " + std::to_string(random >> 1U)).c_str());
}

std::int64_t dropMisfits(Connection& connection) {
    const Schema schema(connection);
    std::vector<std::pair<std::int64_t, std::int64_t>> misfits;
    Statement read(connection, "SELECT field, row, value FROM hab_value");
    while (read.next()) {
        const Field* field = schema.field(read.number(0));
        const bool fits = field != nullptr && read.number(1) < field->table->rows && valueIn(read, 2, *field);
        if (!fits) {
            misfits.emplace_back(read.number(0), read.number(1));
        }
    }
    Statement drop(connection, "DELETE FROM hab_value WHERE field = ?1 AND row = ?2");
    for (const auto& [field, row] : misfits) {
        drop.bind(1, field).bind(2, row).finish();
    }
    return static_cast<std::int64_t>(misfits.size());
}

}  // namespace hab

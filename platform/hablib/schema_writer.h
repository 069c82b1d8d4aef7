// schema_writer.h - the library's own schema, and how it gets into a store file.
#pragma once

#include <cstdint>

#include "sqlite.h"

namespace hab {

// The schema file as it was when the library was built, and a number that tells its versions apart.
extern const char kSchemaText[];
extern const std::uint32_t kSchemaId;

// Makes the tables of an empty file. Throws SqliteError.
void writeLayout(Connection& connection);

// Orders the values of a store that was made when they were kept by field first, inside the caller's transaction; its
// reads would be slow. Throws SqliteError.
void orderValues(Connection& connection);

// Writes the schema into the file, inside the caller's transaction. Tables and fields that are there keep their
// numbers, and with them their values. Throws SqliteError.
void writeSchema(Connection& connection);

// Removes the values whose field is gone or does not admit them any more, inside the caller's transaction. Returns
// their number. Throws SqliteError.
std::int64_t dropMisfits(Connection& connection);

}  // namespace hab

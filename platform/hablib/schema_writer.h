// schema_writer.h - the library's built-in schema, and writing it into a store file.
#pragma once

#include <cstdint>

#include "sqlite.h"

namespace hab {

// The schema file as of the build, and a number that identifies its version.
extern const char kSchemaText[];
extern const std::uint32_t kSchemaId;

// Creates the tables of an empty file. Throws SqliteError.
void writeLayout(Connection& connection);

// Brings the tables of an older store to the present layout, in the caller's transaction. Throws SqliteError.
void renewLayout(Connection& connection);

// Writes the schema into the file, in the caller's transaction. Existing tables and fields keep their numbers and
// thereby their values. Throws SqliteError.
void writeSchema(Connection& connection);

// Removes values whose field no longer exists or no longer accepts them, in the caller's transaction. Returns how many
// were removed. Throws SqliteError.
std::int64_t dropMisfits(Connection& connection);

}  // namespace hab

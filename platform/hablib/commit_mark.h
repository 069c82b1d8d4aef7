// commit_mark.h - detects, without a file lock or a system call, whether a store file has a new commit. One thread at a
// time per connection.
//
// In WAL mode SQLite keeps an index of its log in memory shared by all processes that use the file. Each commit ends by
// writing the index's header there (https://www.sqlite.org/walformat.html, "The WAL-Index Header"): two copies of 48
// bytes, twelve words in the machine's byte order. The first word is the format's version, 3007000. The third word
// counts transactions, and the last two are a checksum over the others. Equal headers therefore mean the same commit. A
// header read during a write matches no other, which costs the reader one unnecessary fetch.
#pragma once

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <optional>

namespace hab {

// Identifies a commit. Unique per commit of a file.
using CommitMark = std::array<std::uint32_t, 12>;

// Returns the mark in a header, or `std::nullopt` when the header has a different version than described above.
std::optional<CommitMark> commitMarkIn(const volatile std::uint32_t* header);

// Returns the mark of the last commit in the file of `db`, or `std::nullopt` when it cannot be determined. Callers then
// read with plain statements.
std::optional<CommitMark> lastCommit(sqlite3* db);

}  // namespace hab

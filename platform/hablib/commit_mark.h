// commit_mark.h - tells without a file lock and without a system call whether a store file has seen another commit. One
// thread at a time for one connection.
//
// In WAL mode SQLite keeps an index of its log in memory that all processes of a file share. Each commit ends by
// writing the index's header there (https://www.sqlite.org/walformat.html, "The WAL-Index Header"): two copies of 48
// bytes, twelve words in the machine's byte order. The first word is the format's version, 3007000; the third counts
// the transactions, and the last two are a checksum over the others. So two headers that are alike stand for the same
// commit. One that is read while it is written is like no other: the reader then fetches once more than it had to.
#pragma once

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <optional>

namespace hab {

// Names a commit: no two commits of a file have the same.
using CommitMark = std::array<std::uint32_t, 12>;

// The mark in a header; nothing when the header is of another version than the one described above.
std::optional<CommitMark> commitMarkIn(const volatile std::uint32_t* header);

// The mark of the last commit that the file of `db` has seen; nothing where that cannot be told. Callers then read with
// plain statements.
std::optional<CommitMark> lastCommit(sqlite3* db);

}  // namespace hab

#include "commit_mark.h"

namespace hab {

std::optional<CommitMark> commitMarkIn(const volatile std::uint32_t* header) {
    constexpr std::uint32_t kVersion = 3'007'000;
    CommitMark mark;
    for (std::uint32_t& word : mark) {
        word = __atomic_load_n(header++, __ATOMIC_ACQUIRE);
    }
    return mark.front() == kVersion ? std::optional(mark) : std::nullopt;
}

std::optional<CommitMark> lastCommit(sqlite3* db) {
    constexpr int kRegionSize = 32768;
    sqlite3_file* file = nullptr;
    sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&file));
    void volatile* index = nullptr;
    const bool shares = file != nullptr && file->pMethods != nullptr && file->pMethods->iVersion >= 2;
    if (!shares || file->pMethods->xShmMap(file, 0, kRegionSize, 0, &index) != SQLITE_OK || index == nullptr) {
        return std::nullopt;
    }
    return commitMarkIn(static_cast<const volatile std::uint32_t*>(index));
}

}  // namespace hab

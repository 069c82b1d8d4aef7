// bell.h - how a writer wakes the sessions of other processes: files beside the store, opened before a commit and
// closed after it. Watchers see the closing, which the kernel does for a killed process too. Each table has a bell of
// its own, so that a change wakes nobody but those who asked for its table.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

#include "file_watch.h"

namespace hab {

// The bell that all sessions hear; tables count from 1.
inline constexpr std::int64_t kBellForAll = 0;

// Takes hold of a table's bell of the store at `path`, making the file (mode 0600, the store's owner) when it is not
// there; it rings when the result is closed. None when it cannot be opened. Any thread.
FileDescriptor holdBell(const std::string& path, std::int64_t table);

// Hears some bells, and what happens to the store file. Holds kernel watches only: it costs nothing while nothing
// happens. Any thread.
class BellWatch {
 public:
    // Hears the bell for all. Throws std::system_error when the watches cannot be set.
    explicit BellWatch(const std::string& path);

    // Hears a table's bell from now on; it must not hear it yet. Throws std::system_error.
    void add(std::int64_t table);

    // Readable when something happened.
    int get() const { return watch_.get(); }
    // Takes note of what happened; true from the first time on that something may have befallen the store file.
    bool drain();
    // Hears the bells that were removed, once they are made anew. Throws std::system_error when one cannot be made.
    void renew();

 private:
    void watchBell(std::int64_t table);

    const std::string path_;
    const FileDescriptor watch_;
    std::mutex mutex_;
    std::unordered_map<int, std::int64_t> tables_;  // by the numbers of their bells' watches
    std::set<std::int64_t> gone_;                   // tables whose bells were removed
    bool storeTouched_ = false;
};

}  // namespace hab

// bell.h - wakes the sessions of other processes through files beside the store. A writer opens a bell before a commit
// and closes it afterwards. Watchers see the close, which the kernel performs for a killed process too. Each table has
// its own bell, so a change wakes only the subscribers of its table.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "file_watch.h"

namespace hab {

// The bell that all sessions watch. Table numbers start at 1.
inline constexpr std::int64_t kBellForAll = 0;

// Opens a table's bell of the store at `path` and creates the file (mode 0600, owned by the store's owner) when it is
// missing. The bell rings when the result is closed. The result is empty when the bell cannot be opened. Any thread.
FileDescriptor holdBell(const std::string& path, std::int64_t table);

// Watches bells and the store file with kernel watches only, so it uses no CPU while idle. Any thread.
class BellWatch {
 public:
    // Watches the bell for all. Throws std::system_error when the watches cannot be set.
    explicit BellWatch(const std::string& path);

    // Starts to watch a table's bell. Throws std::system_error and then does not watch it.
    void add(std::int64_t table);

    // The descriptor to poll. Readable when an event is pending.
    int get() const { return watch_.get(); }
    // Reads the pending events. Returns true from the first event on that may have replaced or removed the store file.
    bool drain() noexcept;
    // Watches removed bells again after creating them. Throws std::system_error when that fails for one of them; a
    // later call continues there.
    void renew();

 private:
    struct Bell {
        int watch = -1;
        bool gone = true;  // not watched, or removed
    };
    void watchBell(std::int64_t table, Bell& bell);

    const std::string path_;
    const FileDescriptor watch_;
    std::mutex mutex_;
    std::map<std::int64_t, Bell> bells_;  // by table
    bool storeTouched_ = false;
};

}  // namespace hab

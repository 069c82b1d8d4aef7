// bell.h - how a writer wakes the sessions of other processes: a file beside the store, opened before a commit and
// closed after it. Watchers see the closing, which the kernel does for a killed process too. One thread at a time.
#pragma once

#include <string>

#include "file_watch.h"

namespace hab {

// Takes hold of the bell of the store at `path`, making the file (mode 0600) when it is not there; it rings when the
// result is closed. None when it cannot be opened.
FileDescriptor holdBell(const std::string& path);

// Sees the bell, and what happens to the store file. Holds kernel watches only: it costs nothing while nothing happens.
class BellWatch {
 public:
    // Throws std::system_error when the watches cannot be set.
    explicit BellWatch(const std::string& path);

    // Readable when something happened.
    int get() const { return watch_.get(); }
    // Takes note of what happened; true when it may have befallen the store file. Throws std::system_error when the
    // bell is gone and cannot be made again.
    bool drain();

 private:
    void watchBell();

    std::string path_;
    FileDescriptor watch_;
    int bellWatch_ = -1;
};

}  // namespace hab

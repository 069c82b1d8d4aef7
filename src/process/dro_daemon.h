// dro_daemon.h - the single-instance lock on the pid file.
#pragma once

namespace dro {

// Creates the pid file, write-locked, with this process's pid. Replaces a file left by a dead process. Returns the
// locked descriptor, owned by the caller, or -1 when another instance runs or the file cannot be created.
int lock_process(const char* pidPath);

// Releases the lock on `descriptor`, closes it and removes the pid file. Returns 0, or -1 when the file could not be
// removed.
int unlock_process(const char* pidPath, int descriptor);

}  // namespace dro

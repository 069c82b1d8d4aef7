// dro_daemon.h - the single-instance lock on the pid file.
#pragma once

namespace dro {

// Creates the pid file with this process's pid in it, write-locked; a file left by a process that has died is replaced.
// Returns the locked descriptor, owned by the caller, or -1 when another instance runs or the file cannot be made.
int lock_process(const char* pidPath);

// Releases the lock on `descriptor`, closes it and removes the pid file. Returns 0, or -1 when the file could not be
// removed.
int unlock_process(const char* pidPath, int descriptor);

}  // namespace dro

// dro_output.h - text on standard output and standard error that never waits for its reader. Any thread.
#pragma once

#include <string_view>

namespace dro {

// Makes writes to standard output and standard error non-blocking for the whole process, its libraries included. Pipes,
// FIFOs and terminals are opened again for this, because O_NONBLOCK on an inherited description would affect every
// process that shares it. A socket cannot be opened again, nor can a file of another user: libraries that write to them
// directly may block, as may two writers at once to such a pipe. Ignores SIGPIPE, so that output whose reader has
// exited does not end the process. Call it before the first output.
void unblock_output();

// These write up to PIPE_BUF bytes as a whole. Text that would block is dropped and counted; the next text that can be
// written is preceded by a line with the count. They keep errno.
void print_stdout(std::string_view text);
void print_stderr(std::string_view text);
// Writes what perror(text) writes.
void print_error(const char* text);

}  // namespace dro

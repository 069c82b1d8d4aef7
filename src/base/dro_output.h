// dro_output.h - writes text to standard output and standard error without waiting for its reader. Any thread.
#pragma once

#include <string_view>

namespace dro {

// Makes writes to standard output and standard error non-blocking for the whole process, its libraries included. Pipes,
// FIFOs and terminals are opened again for this, because O_NONBLOCK on an inherited description would affect every
// process that shares it. Sockets and files of another user cannot be opened again. A library that writes to one
// directly may still block, and so may two concurrent writers to such a pipe. Ignores SIGPIPE, so output whose reader
// has exited does not kill the process. Call it before the first output.
void unblock_output();

// Each writes up to PIPE_BUF bytes, all or none. Text that would block is dropped and counted; the next text that can
// be written is preceded by a line with the count. errno is unchanged.
void print_stdout(std::string_view text);
void print_stderr(std::string_view text);
// Writes the same line as perror(text).
void print_error(const char* text);

}  // namespace dro

#include "agent_process.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace tools {

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

AgentProcess agentProcess() {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(kPidFile, "re"));
    if (!file) {
        return {errno == ENOENT ? AgentProcess::absent : AgentProcess::unreadable, 0, errno};
    }
    // The agent holds a write lock on the file as long as it lives. The pid alone may belong to a different program by
    // now.
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(fileno(file.get()), F_GETLK, &lock) != 0) {
        return {AgentProcess::unreadable, 0, errno};
    }
    if (lock.l_type == F_UNLCK) {
        return {AgentProcess::killed};
    }
    return {AgentProcess::running, lock.l_pid};
}

}  // namespace tools

#include "dro_daemon.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>
#include <utility>

#include "dro_log.h"
#include "dro_text.h"

namespace dro {
namespace {

using PidText = FixedText<32>;
using Path = FixedText<128>;

constexpr mode_t kPidFileMode = 0660;
// Another starting agent holds the stale file only briefly. A file that stays locked belongs to a different program.
constexpr int kMostTries = 500;
constexpr std::chrono::milliseconds kTryPause{2};

// A missing file counts as a failed removal.
int remove_file(const char* path) {
    return access(path, F_OK) != 0 ? -1 : unlink(path);
}

int set_lock(int descriptor, short type) {
    struct flock whole {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    return fcntl(descriptor, F_SETLK, &whole);
}

class Descriptor {
 public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) {
            close(number_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; }
    int release() { return std::exchange(number_, -1); }

 private:
    int number_;
};

// Outcome of creating the pid file.
enum class Made { done, inTheWay, failed };

int open_new(const char* path) {
    return open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kPidFileMode);
}

// Locks the new file and writes the pid. On failure the file is removed.
bool lock_and_write(int descriptor, const char* path, const PidText& pid) {
    const auto text = pid.view();
    errno = 0;
    if (set_lock(descriptor, F_WRLCK) != 0) {
        LOG_ERROR("fcntl() %s\n", std::strerror(errno));
        unlink(path);
        return false;
    }
    if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        LOG_ERROR("write() %s\n", std::strerror(errno));
        if (remove_file(path) != 0) {
            LOG_ERROR("remove_file() %s\n", std::strerror(errno));
        }
        return false;
    }
    return true;
}

Made make_in_place(const char* pidPath, const PidText& pid, int& made) {
    Descriptor file(open_new(pidPath));
    if (file.number() < 0) {
        return Made::inTheWay;
    }
    if (!lock_and_write(file.number(), pidPath, pid)) {
        return Made::failed;
    }
    made = file.release();
    return Made::done;
}

// Writes and locks the file under a process-specific name, then links it to its real name. It is never visible while
// empty, and a process killed half-way leaves no lock behind. The pid file is created in place when the temporary file
// cannot be created or the file system has no hard links. No step follows a symbolic link at the path.
Made make_pid_file(const char* pidPath, const PidText& pid, int& made) {
    Path own;
    own.format("%s.%d", pidPath, static_cast<int>(getpid()));
    unlink(own.c_str());  // left by a killed process with the same pid
    Descriptor file(open_new(own.c_str()));
    if (file.number() < 0) {
        return make_in_place(pidPath, pid, made);
    }
    if (!lock_and_write(file.number(), own.c_str(), pid)) {
        return Made::failed;
    }
    const int error = link(own.c_str(), pidPath) == 0 ? 0 : errno;
    unlink(own.c_str());
    if (error == 0) {
        made = file.release();
        return Made::done;
    }
    return error == EEXIST ? Made::inTheWay : make_in_place(pidPath, pid, made);
}

// Returns the pid in the file: at most eight characters, including a sign.
std::optional<int> read_pid(int descriptor) {
    FixedText<64> text;
    const ssize_t size = pread(descriptor, text.data(), FixedText<64>::capacity() - 1, 0);
    if (size > 0) {
        const auto view = text.view();
        const FixedText<9> digits(view.substr(std::min(view.find_first_not_of(" \t\r\n"), view.size())));
        char* end = nullptr;
        const long pid = std::strtol(digits.c_str(), &end, 10);
        if (end != digits.c_str()) {
            return static_cast<int>(pid);
        }
    }
    LOG_ERROR("Error reading data from pid file - possibly data is in wrong format\n");
    return std::nullopt;
}

// True when the path still leads to the open file.
bool still_there(const char* pidPath, int descriptor) {
    struct stat opened {};
    struct stat named {};
    return fstat(descriptor, &opened) == 0 && stat(pidPath, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

// Checks the existing pid file. Returns true when the lock is worth another try: the file was stale and is removed, or
// another starting agent is replacing it.
bool remove_stale(const char* pidPath) {
    LOG_TRACE("open() %s\n", pidPath);
    if (access(pidPath, F_OK) != 0) {
        LOG_ERROR("lock file access().\n");
        return false;
    }
    LOG_NOTICE("opened ok\n");
    const Descriptor file(open(pidPath, O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (file.number() < 0) {
        LOG_ERROR("Error opening pid file for reading %d\n", errno);
        return false;
    }
    const auto pid = read_pid(file.number());
    if (!pid) {
        return false;
    }
    const int killed = kill(*pid, 0);
    const int error = killed == 0 ? 0 : errno;
    LOG_TRACE("read from pid file pid %d, kill result is %d, errno is %d\n", *pid, killed, error);
    if (killed == 0) {
        LOG_NOTICE("Daemon is already running.\n");
        return false;
    }
    if (error != ESRCH) {
        LOG_ERROR("kill(). errno %d\n", error);
        return false;
    }
    // When several agents start at once, one removes the stale file and the others check again.
    if (set_lock(file.number(), F_WRLCK) != 0 || !still_there(pidPath, file.number())) {
        return true;
    }
    LOG_NOTICE("Remove not associated pid file.\n");
    if (remove_file(pidPath) != 0) {
        LOG_ERROR("remove_file() %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

int lock_process(const char* pidPath) {
    PidText pid;
    pid.format("%d\n", static_cast<int>(getpid()));
    if (pid.empty()) {
        LOG_ERROR("sprintf()");
        return -1;
    }
    int descriptor = -1;
    Made outcome = make_pid_file(pidPath, pid, descriptor);
    int tries = 0;
    for (; tries < kMostTries && outcome == Made::inTheWay && remove_stale(pidPath); ++tries) {
        std::this_thread::sleep_for(kTryPause);
        outcome = make_pid_file(pidPath, pid, descriptor);
    }
    if (tries == kMostTries && outcome == Made::inTheWay) {
        LOG_ERROR("The stale pid file %s stays locked by another program\n", pidPath);
    }
    return outcome == Made::done ? descriptor : -1;
}

int unlock_process(const char* pidPath, int descriptor) {
    if (set_lock(descriptor, F_UNLCK) != 0) {
        LOG_ERROR("fcntl() unlock file error %s\n", std::strerror(errno));
    }
    if (close(descriptor) != 0) {
        LOG_ERROR("close() %s\n", std::strerror(errno));
    }
    if (remove_file(pidPath) != 0) {
        LOG_ERROR("remove_file() after unlock %s\n", std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace dro

// The link's default logger. It opens its file for each line, so the file can be moved at any time.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include "libJorvhdlr.h"

namespace jorv {
namespace {

constexpr off_t kLargestLog = off_t{1024} * 1024;
constexpr std::array kLevelNames{"ERROR", "DEBUG", "INFO"};

pthread_mutex_t g_fileLock = PTHREAD_MUTEX_INITIALIZER;  // serialises lines and rotation

int g_spare = -1;  // a spare descriptor, closed to write a line when no other is free; guarded by g_fileLock

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileClose>;

// /tmp is world-writable. The flags refuse a planted symbolic link and do not block on a planted FIFO.
int open_file() {
    return open(log_file, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
}

File open_log() {
    int descriptor = open_file();
    if (descriptor < 0 && errno == EMFILE && g_spare >= 0) {
        close(std::exchange(g_spare, -1));
        descriptor = open_file();
    }
    if (descriptor < 0) {
        return nullptr;
    }
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        return nullptr;
    }
    File file(fdopen(descriptor, "a+"));
    if (!file) {
        close(descriptor);
    }
    return file;
}

void rotate_when_large() {
    struct stat status {};
    if (lstat(log_file, &status) == 0 && status.st_size >= kLargestLog) {
        std::array<char, PATH_MAX> kept{};
        std::snprintf(kept.data(), kept.size(), "%s.1", log_file);
        std::rename(log_file, kept.data());
    }
}

const char* base_name(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// Opens the log and writes the prefix of a line. Returns null when the line is to be dropped.
File begin_line(Level level) {
    rotate_when_large();
    File file = open_log();
    if (!file) {
        return nullptr;
    }
    std::array<char, 256> moment{};
    const time_t now = std::time(nullptr);
    struct tm local {};
    tzset();  // localtime_r alone does not detect a changed time zone
    localtime_r(&now, &local);
    std::strftime(moment.data(), moment.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::fputs(moment.data(), file.get());
    std::fprintf(file.get(), " (%d):%s:%d\t%s: ", getpid(), base_name(__FILE__), __LINE__,
                 kLevelNames[static_cast<std::size_t>(level)]);
    return file;
}

__attribute__((format(printf, 2, 3))) void log_to_file(Level level, const char* format, ...) {
    pthread_mutex_lock(&g_fileLock);
    if (const File file = begin_line(level)) {
        va_list arguments;
        va_start(arguments, format);
        std::vfprintf(file.get(), format, arguments);
        va_end(arguments);
        std::fflush(file.get());
    }
    if (g_spare < 0) {
        g_spare = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    pthread_mutex_unlock(&g_fileLock);
}

}  // namespace

void (*jorvLog)(Level level, const char* format, ...) = log_to_file;
void (*jorvPerror)(const char* text) = std::perror;
const char* log_file = "/tmp/libJorvhdlr.log";

}  // namespace jorv

#include "namespaces.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "program_folder.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

std::string because(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

bool writeFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

bool loopbackUp() {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
    bool up = ::ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    up = up && ::ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    ::close(fd);
    return up;
}

bool mountEmpty(const std::string& folder) {
    return ::mount("tmpfs", folder.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0700") == 0;
}

// The build folder if it is below /tmp, where the private /tmp would hide it; else empty.
fs::path buildFolderInTmp() {
    const fs::path build = programFolder().parent_path();
    return build.string().starts_with("/tmp/") ? build : fs::path();
}

// Mounts an empty /tmp and keeps the build folder reachable in it.
bool privateTmp() {
    const fs::path build = buildFolderInTmp();
    const int fd = build.empty() ? -1 : ::open(build.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (!mountEmpty("/tmp")) {
        return false;
    }
    if (build.empty()) {
        return true;
    }
    std::error_code error;
    fs::create_directories(build, error);
    const std::string hidden = "/proc/self/fd/" + std::to_string(fd);
    const bool bound =
        fd >= 0 && !error && ::mount(hidden.c_str(), build.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
    ::close(fd);
    return bound;
}

}  // namespace

std::string enterOwnNamespaces(const std::string& privateFolder) {
    const std::string uid = std::to_string(::getuid());
    const std::string gid = std::to_string(::getgid());
    programFolder();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0) {
        return because("cannot create namespaces");
    }
    if (!writeFile("/proc/self/setgroups", "deny") || !writeFile("/proc/self/uid_map", uid + " " + uid + " 1") ||
        !writeFile("/proc/self/gid_map", gid + " " + gid + " 1")) {
        throw std::runtime_error(because("cannot map the user"));
    }
    if (!loopbackUp()) {
        throw std::runtime_error(because("cannot set up the loopback network"));
    }
    std::error_code ignored;
    bool done = ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && privateTmp();
    fs::create_directories(privateFolder, ignored);
    done = done && mountEmpty(privateFolder);
    if (!done) {
        throw std::runtime_error(because("cannot mount private folders"));
    }
    return {};
}

}  // namespace lab

#include "dro_utils_bundle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "dro_log.h"
#include "dro_sync.h"
#include "dro_text.h"
#include "dro_utils_post.h"
#include "provisioning.h"

namespace dro {
namespace {

using Cause = FixedText<1024>;

// The cause of the latest unverified request, empty after a verified one.
Mutex g_causeMutex;
Cause g_cause DRO_GUARDED_BY(g_causeMutex);

// Records the cause of this request's missing verification, empty for none. Returns whether it is new.
bool is_new_cause(std::string_view cause) {
    const MutexLock lock(g_causeMutex);
    const bool same = g_cause == cause;
    g_cause.assign(cause);
    return !same;
}

CaBundle describe(const char* path, int descriptor) {
    struct stat status {};
    fstat(descriptor, &status);
    return {.path = path,
            .device = status.st_dev,
            .inode = status.st_ino,
            .size = status.st_size,
            .changed = status.st_ctim};
}

// The bundle may be readable: the process or the system has no resources to open it.
bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

}  // namespace

std::optional<CaBundle> choose_ca_bundle() {
    Cause cause;
    for (const char* path : provisioning::kCaBundles) {
        const int probe = open(path, O_RDONLY | O_CLOEXEC);
        if (probe >= 0) {
            const CaBundle bundle = describe(path, probe);
            close(probe);
            is_new_cause("");
            return bundle;
        }
        const int error = errno;
        if (is_shortage(error)) {
            LOG_ERROR("Cannot open the bundle %s, so nothing is sent: %s\n", path, std::strerror(error));
            return std::nullopt;
        }
        const Cause before = cause;
        cause.format("%s%s%s: %s", before.c_str(), before.empty() ? "" : ", ", path, std::strerror(error));
    }
    if (request_rules().needsCaBundle) {
        LOG_ERROR("No bundle of certificates can be read, so nothing is sent: %s\n", cause.c_str());
        return std::nullopt;
    }
    if (is_new_cause(cause.view())) {
        LOG_ERROR("No bundle of certificates can be read, so the server's is not verified: %s\n", cause.c_str());
    }
    return CaBundle{};
}

}  // namespace dro

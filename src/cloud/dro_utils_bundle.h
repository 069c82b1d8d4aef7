// dro_utils_bundle.h - the file of trusted certificates. Used only by curl_post and its transfer. Any thread.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <optional>

namespace dro {

// The CA bundle in use. The other members identify its version.
struct CaBundle {
    const char* path = nullptr;  // null: none is readable
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec changed{};  // status change time: a modification time can be reset

    bool operator==(const CaBundle& other) const {
        return path == other.path && device == other.device && inode == other.inode && size == other.size &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

// Returns the first readable provisioned bundle for a request. Without one, the result has a null path and the request
// goes out unverified; each new cause of that is logged. Returns `std::nullopt`, with a log line, when nothing may be
// sent: no bundle is readable and request_rules() require one, or a lack of descriptors or memory hides whether one is.
std::optional<CaBundle> choose_ca_bundle();

}  // namespace dro

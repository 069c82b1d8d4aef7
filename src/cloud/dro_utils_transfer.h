// dro_utils_transfer.h - runs one transfer with the trusted certificates, the kept handles and the stop request. Used
// only by curl_post. Any thread.
#pragma once

#include <curl/curl.h>
#include <sys/stat.h>

#include <ctime>

namespace dro {

// Deleter that releases a libcurl handle with `Function`.
template <auto Function>
struct Releases {
    template <typename T>
    void operator()(T* handle) const {
        static_cast<void>(Function(handle));
    }
};

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

// Returns the first readable provisioned bundle.
CaBundle find_ca_bundle();

// Runs the transfer that `easy` is set up for and blocks until it ends. A stop request ends it with
// CURLE_ABORTED_BY_CALLBACK. The connection is new and is closed afterwards. Kept between transfers: the parsed
// certificates of `bundle`, and the TLS session until a transfer fails or request_rules().sessionLife expires.
CURLcode run_transfer(CURL* easy, const CaBundle& bundle);

}  // namespace dro

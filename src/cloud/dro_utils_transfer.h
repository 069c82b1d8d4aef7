// dro_utils_transfer.h - how one transfer is carried out: with which trusted certificates, on which kept handles, and
// until when. Used by curl_post alone. Any thread.
#pragma once

#include <curl/curl.h>
#include <sys/stat.h>

#include <ctime>

namespace dro {

// Hands a handle of the transfer library back with `Function`.
template <auto Function>
struct Releases {
    template <typename T>
    void operator()(T* handle) const {
        static_cast<void>(Function(handle));
    }
};

// The bundle of trusted certificates in use, and which version of it.
struct CaBundle {
    const char* path = nullptr;  // null: none can be read
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec changed{};  // of its status too: a modification time can be put back

    bool operator==(const CaBundle& other) const {
        return path == other.path && device == other.device && inode == other.inode && size == other.size &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

// The first of the provisioned bundles that can be read.
CaBundle find_ca_bundle();

// Carries out the transfer that `easy` is set up for, and returns when it has ended. A stop of the process ends it with
// CURLE_ABORTED_BY_CALLBACK. The connection is fresh and is closed; what is kept between transfers are the parsed
// certificates of `bundle` and, until a transfer fails, the TLS session, which request_rules().sessionLife bounds.
CURLcode run_transfer(CURL* easy, const CaBundle& bundle);

}  // namespace dro

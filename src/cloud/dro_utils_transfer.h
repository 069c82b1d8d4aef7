// dro_utils_transfer.h - runs one transfer with the trusted certificates, the kept handles and the stop request. Used
// only by curl_post. Any thread.
#pragma once

#include <curl/curl.h>

#include "dro_utils_bundle.h"

namespace dro {

// Deleter that releases a libcurl handle with `Function`.
template <auto Function>
struct Releases {
    template <typename T>
    void operator()(T* handle) const {
        static_cast<void>(Function(handle));
    }
};

// Runs the transfer that `easy` is set up for and blocks until it ends. A stop request ends it with
// CURLE_ABORTED_BY_CALLBACK. The connection is new and is closed afterwards. Kept between transfers: the parsed
// certificates of `bundle`, and the TLS session until a transfer fails or request_rules().sessionLife expires.
CURLcode run_transfer(CURL* easy, const CaBundle& bundle);

}  // namespace dro

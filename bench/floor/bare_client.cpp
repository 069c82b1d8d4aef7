// bare_client URL BUNDLE SECONDS - posts the body on its standard input again and again, and says how often it did.
#include <curl/curl.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <iterator>

#include "floor/bare_post.h"

namespace {

int run(int argc, char** argv) {
    if (argc != 4) {
        return 1;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const std::string body{std::istreambuf_iterator<char>(std::cin), {}};
    const bench::BarePost post(argv[1], argv[2]);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[3]));
    long requests = 0;
    for (; std::chrono::steady_clock::now() < end; ++requests) {
        post.send(body);
    }
    std::printf("%ld\n", requests);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bare_client: %s\n", failure.what());
        return 1;
    }
}

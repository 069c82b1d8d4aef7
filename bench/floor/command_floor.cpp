// command_floor PORT URL BUNDLE STORE - the least that a program does for a command: it takes a message on a thread of
// its own, parses it, writes the three values of a block to a bare store and posts the acknowledgement. One after the
// other, until SIGUSR1.
#include <cJSON.h>
#include <curl/curl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <thread>

#include "floor/bare_link.h"
#include "floor/bare_post.h"
#include "floor/bare_store.h"

namespace {

int run(int argc, char** argv) {
    if (argc != 5) {
        return 1;
    }
    signal(SIGUSR1, [](int) { _exit(0); });
    curl_global_init(CURL_GLOBAL_DEFAULT);
    bench::BareStore store(argv[4]);
    const bench::BarePost post(argv[2], argv[3]);
    const int listening = bench::listen_on(static_cast<std::uint16_t>(std::atoi(argv[1])), SOMAXCONN);
    for (;;) {
        const int connection = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        std::thread([&] {
            const std::string message = bench::take_message(connection);
            cJSON* parsed = cJSON_Parse(message.c_str());
            if (const char* uuid = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(parsed, "UUID"))) {
                bench::write_block(store);
                post.send(bench::ack_body(uuid));
            }
            cJSON_Delete(parsed);
        }).join();
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception&) {
        return 1;
    }
}

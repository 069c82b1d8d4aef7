#include "floor/bare_post.h"

#include <curl/curl.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

#include "provisioning.h"

namespace bench {
namespace {

std::size_t collect(const char* bytes, std::size_t size, std::size_t count, void* answer) {
    static_cast<std::string*>(answer)->append(bytes, size * count);
    return size * count;
}

int close_counted(void* wire, curl_socket_t descriptor) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) == 0) {
        *static_cast<Wire*>(wire) = {static_cast<double>(info.tcpi_bytes_sent),
                                     static_cast<double>(info.tcpi_bytes_received),
                                     static_cast<double>(info.tcpi_segs_out), static_cast<double>(info.tcpi_segs_in)};
    }
    return close(descriptor);
}

}  // namespace

void BarePost::send(const std::string& body) const {
    perform(body, nullptr);
}

Wire BarePost::measure(const std::string& body) const {
    Wire wire;
    perform(body, &wire);
    return wire;
}

void BarePost::perform(const std::string& body, Wire* wire) const {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy(curl_easy_init(), curl_easy_cleanup);
    const auto& key = provisioning::kNonProductionKey;
    const std::string keyLine = "X-DreamFactoryAPIKey: " + std::string(key[0]) + std::string(key[1]);
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(
        curl_slist_append(nullptr, "Content-Type:application/json"), curl_slist_free_all);
    curl_slist_append(headers.get(), keyLine.c_str());
    std::string answer;
    curl_easy_setopt(easy.get(), CURLOPT_URL, url_.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy.get(), CURLOPT_CAINFO, bundle_.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &answer);
    const bool handshakeOnly = wire != nullptr && body.empty();
    if (wire != nullptr) {
        curl_easy_setopt(easy.get(), CURLOPT_CLOSESOCKETFUNCTION, close_counted);
        curl_easy_setopt(easy.get(), CURLOPT_CLOSESOCKETDATA, wire);
        curl_easy_setopt(easy.get(), CURLOPT_CONNECT_ONLY, handshakeOnly ? 1L : 0L);
    }
    const CURLcode result = curl_easy_perform(easy.get());
    if (result != CURLE_OK || (answer.empty() && !handshakeOnly)) {
        throw std::runtime_error(std::string("the bare request failed: ") + curl_easy_strerror(result));
    }
}

std::string ack_body(const std::string& uuid) {
    return R"({"token":")" + std::string(64, 'a') +
           R"(","ePOCHTimeStamp":"1700000000","serialNumber":"FSN0123456789","transactionId":")" + uuid +
           R"(","transactionStatus":"1","failureReason":"Success"})";
}

}  // namespace bench

#ifndef CPPHTTPLIB_OPENSSL_SUPPORT  // newer builds of the library define it themselves
#define CPPHTTPLIB_OPENSSL_SUPPORT
#endif
#include "test_cloud.h"

#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "provisioning.h"

namespace dro_test {
namespace {

void send_answer(const Answer& answer, const httplib::Request& request, httplib::Response& response) {
    constexpr const char* kJson = "application/json";
    response.status = answer.status;
    if (answer.kind == Answer::Kind::raw) {
        SSL* ssl = const_cast<SSL*>(request.ssl);
        SSL_write(ssl, answer.body.data(), static_cast<int>(answer.body.size()));
        SSL_shutdown(ssl);  // the server's own response then fails
    } else if (answer.kind == Answer::Kind::hangUp || answer.kind == Answer::Kind::reset) {
        const int toReset = answer.kind == Answer::Kind::reset ? SSL_get_fd(request.ssl) : -1;
        response.set_content_provider(std::size_t{64}, kJson,
                                      [toReset](std::size_t, std::size_t, httplib::DataSink& /*sink*/) {
                                          const sockaddr nobody{AF_UNSPEC, {}};
                                          connect(toReset, &nobody, sizeof nobody);
                                          return false;
                                      });
    } else {
        response.set_content(answer.body, kJson);
    }
}

int select_http2(SSL* /*ssl*/, const unsigned char** selected, unsigned char* length, const unsigned char* offered,
                 unsigned offeredLength, void* /*context*/) {
    constexpr std::array<unsigned char, 3> kHttp2{2, 'h', '2'};
    unsigned char* found = nullptr;
    const int result = SSL_select_next_proto(&found, length, kHttp2.data(), kHttp2.size(), offered, offeredLength);
    *selected = found;
    return result == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

}  // namespace

lab::ServerIdentity make_identity() {
    return lab::makeServerIdentity(
        {"qa.dro.localhost", "dev.dro.localhost", "stag.dro.localhost", "api.dro.localhost"});
}

const lab::ServerIdentity& identity() {
    static const lab::ServerIdentity& made = *std::make_unique<lab::ServerIdentity>(make_identity()).release();
    return made;
}

void trust(const lab::ServerIdentity& identity) {
    lab::writeBundle(ca_bundle(), identity.authority.get());
}

std::string ca_bundle() {
    return provisioning::kCaBundles.back();
}

void remove_ca_bundle() {
    std::filesystem::remove(ca_bundle());
}

struct TestCloud::Server {
    // Reuses the previous port, if any.
    void listen(const lab::ServerIdentity& id) {
        https = std::make_unique<httplib::SSLServer>(id.server.get(), id.serverKey.get());
        SSL_CTX_set_alpn_select_cb(https->ssl_context(), select_http2, nullptr);
        https->set_tcp_nodelay(true);
        https->set_keep_alive_max_count(1);
        https->set_payload_max_length(std::size_t{4} * 1024 * 1024);
        https->Post(".*",
                    [this](const httplib::Request& request, httplib::Response& response) { serve(request, response); });
        port = port == 0 ? https->bind_to_any_port("127.0.0.1") : https->bind_to_port("127.0.0.1", port) ? port : -1;
        if (port <= 0) {
            throw std::runtime_error("the cloud found no port");
        }
        listener = std::thread([this] { https->listen_after_bind(); });
        eventually([this] { return https->is_running(); });
    }

    void release(bool on) {
        const std::lock_guard lock(mutex);
        released = on;
        ++releases;
        changed.notify_all();
    }

    void serve(const httplib::Request& request, httplib::Response& response) {
        std::unique_lock lock(mutex);
        received.push_back({request.path,
                            {request.headers.begin(), request.headers.end()},
                            request.body,
                            request.remote_port,
                            SSL_session_reused(request.ssl) == 1,
                            std::chrono::steady_clock::now()});
        changed.notify_all();
        Answer answer = otherwise;
        if (auto& script = scripts[request.path]; !script.empty()) {
            answer = script.front();
            script.pop_front();
        }
        if (answer.kind == Answer::Kind::stall) {
            changed.wait(lock, [this, seen = releases] { return released || releases != seen; });
        }
        lock.unlock();
        send_answer(answer, request, response);
    }

    std::vector<Request> to(const std::string& path) const {
        std::vector<Request> matching;
        std::copy_if(received.begin(), received.end(), std::back_inserter(matching),
                     [&](const Request& request) { return path.empty() || request.path == "/" + path; });
        return matching;
    }

    std::unique_ptr<httplib::SSLServer> https;
    int port = 0;
    std::thread listener;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Request> received;
    std::map<std::string, std::deque<Answer>> scripts;
    Answer otherwise;
    bool released = false;
    unsigned long releases = 0;
};

TestCloud::TestCloud() : server_(std::make_unique<Server>()) {
    up();
    trust(identity());
}

TestCloud::~TestCloud() {
    down();
}

void TestCloud::down() {
    release();
    if (server_->listener.joinable()) {
        server_->https->stop();
        server_->listener.join();
    }
    server_->https.reset();
}

void TestCloud::up(const lab::ServerIdentity& with) {
    server_->release(false);
    server_->listen(with);
}

std::string TestCloud::base_url(const std::string& host) const {
    return "https://" + host + ":" + std::to_string(server_->port) + "/";
}

void TestCloud::answer_all(Answer answer) {
    const std::lock_guard lock(server_->mutex);
    server_->otherwise = std::move(answer);
}

void TestCloud::script(const std::string& path, std::vector<Answer> answers) {
    const std::lock_guard lock(server_->mutex);
    auto& script = server_->scripts["/" + path];
    server_->released = false;
    script.insert(script.end(), answers.begin(), answers.end());
}

void TestCloud::release() {
    server_->release(true);
}

std::vector<Request> TestCloud::wait_for(std::size_t count, const std::string& path,
                                         std::chrono::milliseconds patience) const {
    std::unique_lock lock(server_->mutex);
    server_->changed.wait_for(lock, patience, [&] { return server_->to(path).size() >= count; });
    return server_->to(path);
}

void TestCloud::forget() {
    const std::lock_guard lock(server_->mutex);
    server_->received.clear();
    server_->scripts.clear();
}

}  // namespace dro_test

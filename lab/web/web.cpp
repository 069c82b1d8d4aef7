#include "web.h"

#include <httplib.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "commands.h"
#include "control.h"
#include "web_assets.h"

namespace lab {

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kJson = "application/json";
constexpr const char* kKeyHeader = "X-Lab-Key";
constexpr int kForbidden = 403;
constexpr int kTooMany = 503;
constexpr std::size_t kBodyLimit = 1024UL * 1024;
constexpr int kReadersMost = 8;
constexpr std::size_t kThreads = 16;  // an open page occupies one, and so does a command waiting for its answer
constexpr std::chrono::seconds kReaderPatience{2};  // write time-out for stuck readers; they may reconnect
constexpr std::chrono::seconds kHeartbeat{10};      // a lost reader is detected on the next write

std::string describeLab() {
    Json list = Json::array();
    for (const auto& command : commands()) {
        list.push_back({{"name", command.name}, {"example", command.example}});
    }
    return printJson({{"commands", list}, {"tables", WebStore::tables()}});
}

httplib::Headers pageHeaders() {
    return {{"Content-Security-Policy",
             "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
             "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
            {"Cross-Origin-Resource-Policy", "same-origin"},
            {"X-Content-Type-Options", "nosniff"},
            {"Referrer-Policy", "no-referrer"},
            {"Cache-Control", "no-store"}};
}

bool isAsset(const httplib::Request& request) {
    return request.method != "POST" && std::any_of(kWebAssets.begin(), kWebAssets.end(),
                                                   [&](const WebAsset& asset) { return request.path == asset.path; });
}

bool same(const std::string& one, const std::string& other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

// The position of a reader that reconnects; 0 for a new one.
std::uint64_t placeOf(const httplib::Request& request) {
    const std::string text = request.get_header_value("Last-Event-ID");
    std::uint64_t place = 0;
    std::from_chars(text.data(), text.data() + text.size(), place);
    return place;
}

bool sendNews(const WebFeed& feed, std::uint64_t& place, httplib::DataSink& sink) {
    const WebFeed::News news = feed.after(place, kHeartbeat);
    place = news.upTo;
    const std::string message =
        news.items.empty() ? ":\n\n" : "id: " + std::to_string(place) + "\ndata: " + news.items + "\n\n";
    if (!sink.write(message.data(), message.size())) {
        return false;
    }
    if (news.over) {
        static const std::string kEnd = "event: end\ndata:\n\n";
        sink.write(kEnd.data(), kEnd.size());
        sink.done();
    }
    return true;
}

}  // namespace

WebPage::WebPage(Lab& lab, std::shared_ptr<WebFeed> feed, int port)
    : lab_(lab),
      feed_(std::move(feed)),
      key_(newTransaction()),
      description_(describeLab()),
      store_(*feed_),
      server_(std::make_unique<httplib::Server>()) {
    route();
    listen(port);
}

WebPage::~WebPage() {
    feed_->end();
    // Let readers receive the end of the feed; stopping the server would only close their connections.
    const auto deadline = std::chrono::steady_clock::now() + kReaderPatience;
    while (readers_ > 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    server_->stop();
    thread_.join();
}

std::string WebPage::address() const {
    return std::string("http://") + kLoopback + ":" + std::to_string(port_) + "/#" + key_;
}

// Returns why a request is refused, or null.
const char* WebPage::refusal(const httplib::Request& request) const {
    const std::string host = request.get_header_value("Host");
    const std::string port = ":" + std::to_string(port_);
    if (host != kLoopback + port && host != "localhost" + port) {
        return "This is not the address of the lab's page.";
    }
    if (isAsset(request)) {
        return nullptr;
    }
    // EventSource cannot set request headers.
    if (!same(request.get_header_value(kKeyHeader), key_) && !same(request.get_param_value("key"), key_)) {
        return "The key is missing or belongs to another run. Open the URL that drolab printed.";
    }
    if (request.method == "POST" && request.get_header_value("Origin") != "http://" + host) {
        return "Only the lab's own page may run operations.";
    }
    return nullptr;
}

void WebPage::route() {
    server_->set_default_headers(pageHeaders());
    server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        const char* why = refusal(request);
        if (why == nullptr) {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        response.status = kForbidden;
        response.set_content(why, "text/plain");
        return httplib::Server::HandlerResponse::Handled;
    });
    for (const auto& asset : kWebAssets) {
        server_->Get(asset.path, [&asset](const httplib::Request&, httplib::Response& response) {
            response.set_content(asset.text, asset.type);
        });
    }
    server_->Get("/lab.json", [this](const httplib::Request&, httplib::Response& response) {
        response.set_content(description_, kJson);
    });
    server_->Get("/events", [this](const httplib::Request& request, httplib::Response& response) {
        sendEvents(request, response);
    });
    server_->Post("/operations/(.+)", [this](const httplib::Request& request, httplib::Response& response) {
        response.set_content(performJson(lab_, request.matches[1], request.body), kJson);
    });
}

void WebPage::sendEvents(const httplib::Request& request, httplib::Response& response) {
    if (++readers_ > kReadersMost) {
        --readers_;
        response.status = kTooMany;
        response.set_content("Too many pages of this lab are open.", "text/plain");
        return;
    }
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, place = placeOf(request)](std::size_t, httplib::DataSink& sink) mutable {
            return sendNews(*feed_, place, sink);
        },
        [this](bool) { --readers_; });
}

void WebPage::listen(int port) {
    server_->set_keep_alive_max_count(1);
    server_->set_payload_max_length(kBodyLimit);
    server_->set_write_timeout(kReaderPatience);
    server_->new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    // The library's default, SO_REUSEPORT, would let a second server of the same user share the port.
    server_->set_socket_options([](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    port_ = port == 0 ? server_->bind_to_any_port(kLoopback) : port;
    if (port_ <= 0 || (port != 0 && !server_->bind_to_port(kLoopback, port))) {
        throw std::runtime_error("port " + std::to_string(port) + " is in use; choose another one: drolab up --web " +
                                 std::to_string(port + 1));
    }
    thread_ = std::jthread([this] { server_->listen_after_bind(); });
    while (!server_->is_running()) {  // stop() has no effect on a server that is not running yet
        std::this_thread::yield();
    }
}

}  // namespace lab

#include "cloud_server.h"

#include <httplib.h>

#include <array>
#include <stdexcept>
#include <thread>

#include "cloud_checks.h"
#include "cloud_summary.h"
#include "lab_provisioning.h"

namespace lab {

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::size_t kBodyLimit = 4UL * 1024 * 1024;  // bytes; the agent's longest body is slightly over 2 MiB
constexpr std::size_t kRequestsPerConnection = 1;      // like the agent; idle connections would delay stopping
constexpr const char* kJson = "application/json";

std::vector<std::string> certificateHosts() {
    std::vector<std::string> hosts(provisioning::kNonProductionMarkers.begin(),
                                   provisioning::kNonProductionMarkers.end());
    hosts.emplace_back(provisioning::kProductionMarker);
    return hosts;
}

std::string withoutPort(const std::string& host) {
    return host.substr(0, host.rfind(':'));
}

Received received(const httplib::Request& request) {
    return {.method = request.method,
            .path = request.path,
            .host = withoutPort(request.get_header_value("Host")),
            .contentType = request.get_header_value("Content-Type"),
            .apiKey = request.get_header_value("X-DreamFactoryAPIKey"),
            .body = request.body};
}

std::string headOf(const httplib::Request& request) {
    std::string head = request.method + " " + request.path;
    for (const char* name : {"Host", "Content-Type", "Content-Length", "X-DreamFactoryAPIKey"}) {
        if (request.has_header(name)) {
            head += std::string("\n") + name + ": " + request.get_header_value(name);
        }
    }
    return head;
}

std::string refusal(const std::string& why) {
    return printJson({{"status", 0}, {"message", why}});
}

std::string registrationBody(const RegistrationAnswer& answer) {
    return printJson({{"status", answer.status},
                      {"reset", answer.reset},
                      {"claimState", answer.claimState},
                      {"syncTime", answer.syncTime.empty() ? Json() : Json(answer.syncTime)}});
}

// Announces a longer body than it sends, so the library closes the connection.
void hangUp(httplib::Response& response) {
    constexpr std::size_t kAnnounced = 100;
    response.set_content_provider(kAnnounced, kJson,
                                  [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
}

}  // namespace

struct CloudServer::Listener {
    std::unique_ptr<httplib::SSLServer> server;
    std::jthread thread;
};

const char* nameOf(Mood mood) {
    constexpr std::array kNames{"accept", "refuse", "error", "empty", "garbage", "stall", "close"};
    return kNames.at(static_cast<std::size_t>(mood));
}

CloudServer::CloudServer(Timeline& timeline, CloudRecord& record, std::string serial, const std::string& caBundle)
    : timeline_(timeline),
      record_(record),
      serial_(std::move(serial)),
      identity_(makeServerIdentity(certificateHosts())) {
    writeBundle(caBundle, identity_.authority.get());
    up();
}

CloudServer::~CloudServer() {
    down();
}

std::string CloudServer::baseUrl(const std::string& host) const {
    return "https://" + host + ":" + std::to_string(port_) + "/";
}

void CloudServer::startListening() {
    auto listener = std::make_unique<Listener>();
    listener->server = std::make_unique<httplib::SSLServer>(identity_.server.get(), identity_.serverKey.get());
    httplib::SSLServer& server = *listener->server;
    if (!server.is_valid()) {
        throw std::runtime_error("cannot create the cloud's TLS server");
    }
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(kRequestsPerConnection);
    server.set_payload_max_length(kBodyLimit);
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
        handle(request, response);
    };
    server.Post(".*", handler).Get(".*", handler).Put(".*", handler);
    const int port = port_ == 0 ? server.bind_to_any_port(kLoopback) : port_;
    if (port <= 0 || (port_ != 0 && !server.bind_to_port(kLoopback, port))) {
        throw std::runtime_error("the cloud cannot listen on the loopback interface");
    }
    port_ = port;
    setUp(true);
    listener->thread = std::jthread([&server] { server.listen_after_bind(); });
    while (!server.is_running()) {  // stop() has no effect on a server that is not running yet
        std::this_thread::yield();
    }
    listener_ = std::move(listener);
}

void CloudServer::setUp(bool listening) {
    const std::lock_guard lock(mutex_);
    up_ = listening;
    changed_.notify_all();
}

void CloudServer::up() {
    const std::lock_guard guard(listenerMutex_);
    if (!listener_) {
        startListening();
    }
}

void CloudServer::down() {
    const std::lock_guard guard(listenerMutex_);
    setUp(false);
    if (listener_) {
        listener_->server->stop();
        listener_.reset();  // joins the thread: every request has been answered
    }
}

bool CloudServer::isUp() const {
    const std::lock_guard lock(mutex_);
    return up_;
}

void CloudServer::behave(Mood mood, int times) {
    const std::lock_guard lock(mutex_);
    mood_ = mood;
    moodLeft_ = times;
    changed_.notify_all();
}

void CloudServer::slow(std::chrono::milliseconds delay) {
    const std::lock_guard lock(mutex_);
    delay_ = delay;
    changed_.notify_all();
}

void CloudServer::registration(const RegistrationAnswer& answer) {
    const std::lock_guard lock(mutex_);
    registration_ = answer;
}

RegistrationAnswer CloudServer::registration() const {
    const std::lock_guard lock(mutex_);
    return registration_;
}

std::string CloudServer::describe() const {
    const std::lock_guard lock(mutex_);
    std::string text = "port " + std::to_string(port_) + ", " + (up_ ? nameOf(mood_) : "down");
    if (delay_.count() > 0) {
        text += ", " + std::to_string(delay_.count()) + " ms slow";
    }
    return text;
}

// Consumes the mood of one answer. Called before the request is published, so a mood set in reaction to the request
// does not affect its own answer.
Mood CloudServer::takeMood() {
    const std::lock_guard lock(mutex_);
    const Mood mood = mood_;
    if (moodLeft_ > 0 && --moodLeft_ == 0) {
        mood_ = Mood::Accept;
    }
    return mood;
}

// Waits for the configured delay. A stalled answer waits for the next mood.
Mood CloudServer::waitToAnswer(Mood mood) {
    std::unique_lock lock(mutex_);
    const auto leaving = [this] { return !up_; };
    if (delay_.count() > 0) {
        changed_.wait_for(lock, delay_, leaving);
    }
    if (mood == Mood::Stall) {
        changed_.wait(lock, [&] { return leaving() || mood_ != Mood::Stall; });
        return leaving() ? Mood::Close : mood_;
    }
    return mood;
}

void CloudServer::handle(const httplib::Request& request, httplib::Response& response) {
    const auto now = std::chrono::system_clock::now();
    const Expected expected{serial_, std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count()};
    Checked checked = checkRequest(received(request), expected);

    auto entry = std::make_shared<CloudRequest>();
    entry->endpoint = request.path;
    entry->body = request.body;
    entry->json = std::move(checked.json);
    entry->fault = checked.fault ? checked.fault->why : "";
    Event arrived;
    arrived.from = Actor::Agent;
    arrived.to = Actor::Cloud;
    arrived.what = summary(*entry);
    arrived.body = request.body;
    arrived.tone = entry->good() ? Tone::Plain : Tone::Bad;
    arrived.exchange = ++exchanges_;
    arrived.head = headOf(request);
    timeline_.post(arrived);
    const Mood mood = checked.fault ? Mood::Refuse : takeMood();
    record_.add(entry);
    if (checked.fault) {
        response.status = checked.fault->status;
        response.set_content(refusal(checked.fault->why), kJson);
    } else {
        answer(*entry, waitToAnswer(mood), response);
    }
    const auto took =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - entry->at);
    Event answered;
    answered.from = Actor::Cloud;
    answered.to = Actor::Agent;
    answered.what = std::to_string(response.status > 0 ? response.status : 200) + " " + response.body;
    answered.took = took;
    answered.exchange = arrived.exchange;
    timeline_.post(answered);
}

void CloudServer::answer(const CloudRequest& request, Mood mood, httplib::Response& response) const {
    switch (mood) {
        case Mood::Accept:
            response.set_content(
                request.endpoint == "/addJorvDeviceId/" ? registrationBody(registration()) : R"({"status":1})", kJson);
            break;
        case Mood::Refuse:
            response.set_content(request.endpoint == "/addJorvDeviceId/"
                                     ? R"({"status":0,"reset":false,"errorCode":"LAB","message":"refused"})"
                                     : R"({"status":0})",
                                 kJson);
            break;
        case Mood::Error:
            response.status = 500;
            response.set_content(R"({"status":0,"message":"internal error"})", kJson);
            break;
        case Mood::Garbage:
            response.set_content("<html>not what you asked for</html>", "text/html");
            break;
        case Mood::Empty:
        case Mood::Stall:  // the stall is over
            response.status = 200;
            break;
        case Mood::Close:
            hangUp(response);
            break;
    }
}

}  // namespace lab

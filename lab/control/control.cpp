#include "control.h"

#include <httplib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace lab {

namespace {

constexpr int kNoPort = 80;                     // required by the library, unused on a local socket
constexpr time_t kAnswerPatienceSeconds = 600;  // longest wait for a command

std::optional<Reply> ask(const std::string& operation, const Json& arguments) {
    httplib::Client client(controlPath(), kNoPort);
    client.set_address_family(AF_UNIX);
    client.set_read_timeout(kAnswerPatienceSeconds);
    client.set_default_headers({{"Host", "drolab"}});
    const auto result = client.Post("/" + operation, printJson(arguments), "application/json");
    if (!result) {
        return std::nullopt;
    }
    const Json answer = parseJson(result->body);
    return Reply{member(answer, "ok") == true, textOf(answer, "text")};
}

bool labRuns() {
    return ask("status", Json::object()).has_value();
}

}  // namespace

std::string controlPath() {
    const char* folder = std::getenv("XDG_RUNTIME_DIR");
    return folder != nullptr && *folder != '\0' ? std::string(folder) + "/drolab.sock"
                                                : "/tmp/drolab-" + std::to_string(::getuid()) + ".sock";
}

ControlServer::ControlServer(Lab& lab) : server_(std::make_unique<httplib::Server>()) {
    const std::string path = controlPath();
    if (labRuns()) {
        throw std::runtime_error("a lab is already running (" + path + "); stop it with Ctrl-C in its terminal");
    }
    ::unlink(path.c_str());
    server_->set_address_family(AF_UNIX);
    server_->set_keep_alive_max_count(1);
    server_->Post("/(.+)", [&lab](const httplib::Request& request, httplib::Response& response) {
        response.set_content(performJson(lab, request.matches[1], request.body), "application/json");
    });
    const mode_t before = ::umask(0177);
    const bool bound = server_->bind_to_port(path, kNoPort);
    ::umask(before);
    if (!bound) {
        throw std::runtime_error("cannot listen on " + path);
    }
    thread_ = std::jthread([this] { server_->listen_after_bind(); });
    while (!server_->is_running()) {  // stop() has no effect on a server that is not running yet
        std::this_thread::yield();
    }
}

ControlServer::~ControlServer() {
    server_->stop();
    thread_.join();
    ::unlink(controlPath().c_str());
}

std::string performJson(Lab& lab, const std::string& operation, const std::string& arguments) {
    const Reply reply = perform(lab, operation, parseJson(arguments));
    return printJson({{"ok", reply.ok}, {"text", reply.text}});
}

Reply askLab(const std::string& operation, const Json& arguments) {
    const auto reply = ask(operation, arguments);
    return reply ? *reply : Reply{false, "no lab is running; start one in another terminal with: drolab up"};
}

}  // namespace lab

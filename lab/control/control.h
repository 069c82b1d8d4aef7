// control.h - how a second terminal reaches a running lab: HTTP on a local socket that only the user can open.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "operations.h"

namespace httplib {
class Server;
}

namespace lab {

// $XDG_RUNTIME_DIR/drolab.sock, or /tmp/drolab-UID.sock.
std::string controlPath();

class ControlServer {
 public:
    // Listens. Throws std::runtime_error when a lab listens there already.
    explicit ControlServer(Lab& lab);
    // Waits for operations that are being done.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

 private:
    std::unique_ptr<httplib::Server> server_;
    std::jthread thread_;
};

// Does an operation whose arguments are a JSON text and gives the reply as JSON: {"ok","text"}.
std::string performJson(Lab& lab, const std::string& operation, const std::string& arguments);

// Asks the running lab; a lab that does not run is a reply with what to do.
Reply askLab(const std::string& operation, const Json& arguments);

}  // namespace lab

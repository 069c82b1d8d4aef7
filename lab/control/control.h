// control.h - controls a running lab from a second terminal: HTTP on a local socket that only the same user can open.
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
    // Starts listening. Throws std::runtime_error when another lab is listening.
    explicit ControlServer(Lab& lab);
    // Waits for running operations.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

 private:
    std::unique_ptr<httplib::Server> server_;
    std::jthread thread_;
};

// Runs an operation with arguments as JSON text and returns the reply as JSON: {"ok","text"}. Never throws.
std::string performJson(Lab& lab, const std::string& operation, const std::string& arguments);

// Sends an operation to the running lab; waits up to ten minutes. Without a lab, the reply explains how to start one.
Reply askLab(const std::string& operation, const Json& arguments);

}  // namespace lab

// commands.h - the cloud's commands: what they are made of and what their success looks like. Any thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "lab.h"

namespace lab {

// How a command is answered when all goes well.
enum class Answer {
    Acknowledged,       // transactionAck/ with status 1
    List,               // transactionAck/ with the device list
    CircleDevice,       // pc/circle/cuuid
    AcknowledgedTwice,  // at once, and for the activation when the order has been carried out
};

struct Command {
    const char* name;
    Answer answer;
    const char* example;  // of its data
};

const std::vector<Command>& commands();
const Command* findCommand(const std::string& name);

struct Outcome {
    bool success = false;
    std::string text;  // such as "acknowledged: 1 Success"
    std::chrono::milliseconds took{0};
    CloudRecord::Request answer;  // the request that decided; null when nothing came
};

// A fresh transaction id.
std::string newTransaction();

// The envelope of a command; `data` is JSON text or empty for none.
std::string envelope(const std::string& transaction, const std::string& command, const std::string& data);

// Delivers a command and waits for the request that shows its success or failure. A command that is not known is
// expected to be acknowledged. Throws std::runtime_error when it cannot be delivered.
Outcome sendCommand(Lab& lab, const std::string& command, const std::string& data, std::chrono::milliseconds timeout,
                    const std::string& transaction = newTransaction());

}  // namespace lab

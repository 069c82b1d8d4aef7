// commands.h - the cloud commands, their example data and their expected answers. Any thread may call it.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "lab.h"

namespace lab {

// The answer to a successful command.
enum class Answer {
    Acknowledged,       // transactionAck/ with status 1
    List,               // transactionAck/ with the device list
    CircleDevice,       // pc/circle/cuuid
    AcknowledgedTwice,  // at once, and for the activation when the order is complete
};

struct Command {
    const char* name;
    Answer answer;
    const char* example;  // JSON text of its data
};

const std::vector<Command>& commands();
const Command* findCommand(const std::string& name);

struct Outcome {
    bool success = false;
    std::string text;  // such as "acknowledged: 1 Success"
    std::chrono::milliseconds took{0};
    CloudRecord::Request answer;  // the deciding request; null on timeout
};

std::string newTransaction();

// The envelope of a command. `data` is JSON text, or empty for none.
std::string envelope(const std::string& transaction, const std::string& command, const std::string& data);

// Delivers a command and waits for the request that shows success or failure. An unknown command expects an
// acknowledgement. Throws std::runtime_error when the command cannot be delivered.
Outcome sendCommand(Lab& lab, const std::string& command, const std::string& data, std::chrono::milliseconds timeout,
                    const std::string& transaction = newTransaction());

}  // namespace lab

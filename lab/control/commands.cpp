#include "commands.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "cloud_summary.h"
#include "store_fields.h"

namespace lab {

namespace {

bool isAcknowledgement(const CloudRequest& request, const std::string& transaction) {
    return request.endpoint == "/transactionAck/" && request.text("transactionId") == transaction;
}

bool succeeded(const CloudRequest& request) {
    return request.text("transactionStatus") == "1";
}

// Matches the request that decides the outcome of a command. A refusal always decides.
CloudRecord::Wanted decisive(Answer answer, const std::string& transaction, const Store& store) {
    switch (answer) {
        case Answer::CircleDevice:
            return [transaction](const CloudRequest& request) {
                return (request.endpoint == "/pc/circle/cuuid" && request.text("uuid") == transaction) ||
                       (isAcknowledgement(request, transaction) && !succeeded(request));
            };
        case Answer::AcknowledgedTwice:
            return [transaction, activation = store.get(field::DroCfg::circle_uuid),
                    running = false](const CloudRequest& request) mutable {
                if (running) {
                    return isAcknowledgement(request, activation);
                }
                running = isAcknowledgement(request, transaction) && succeeded(request);
                return isAcknowledgement(request, transaction) && !succeeded(request);
            };
        default:
            return [transaction](const CloudRequest& request) { return isAcknowledgement(request, transaction); };
    }
}

bool isSuccess(Answer answer, const CloudRequest& request) {
    if (!request.good()) {
        return false;
    }
    if (answer == Answer::CircleDevice) {
        return request.endpoint == "/pc/circle/cuuid";
    }
    return succeeded(request) && (answer != Answer::List || deviceListOf(request).is_array());
}

}  // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> all{
        {"BLOCK_CD", Answer::Acknowledged, R"({"cdMac":"02:00:5E:00:53:00"})"},
        {"UNBLOCK_CD", Answer::Acknowledged, R"({"cdMac":"02:00:5E:00:53:00"})"},
        {"BLOCK_CD_BULK", Answer::Acknowledged, R"({"elements":[{"cdMac":"02:00:5E:00:53:00"}]})"},
        {"UNBLOCK_CD_BULK", Answer::Acknowledged, R"({"elements":[{"cdMac":"02:00:5E:00:53:00"}]})"},
        {"TAG_CD", Answer::Acknowledged, R"({"cdMac":"02:00:5E:00:53:00","tagStatus":1})"},
        {"CUSTOMIZE_CD", Answer::Acknowledged, R"({"cdMac":"02:00:5E:00:53:00","cdName":"Desk phone"})"},
        {"REMOVE_CD", Answer::Acknowledged, R"({"cdMac":"02:00:5E:00:53:00"})"},
        {"BST_ENABLE", Answer::Acknowledged, "{}"},
        {"BST_DISABLE", Answer::Acknowledged, "{}"},
        {"UPDATE_DTN_SCHEDULE", Answer::Acknowledged, R"({"timeZone":"UTC+1","startTime":"08:00","endTime":"20:00"})"},
        {"DEVICE_CLAIMED", Answer::List, R"({"fetchFor":"claim"})"},
        {"FETCH_CD", Answer::List, R"({"status":0,"fetchFor":"app"})"},
        {"ACTIVATE_CIRCLE", Answer::CircleDevice, R"({"overRide":0})"},
        {"DEACTIVATE_CIRCLE", Answer::Acknowledged, R"({"overRide":0})"},
        {"PROVISION_CIRCLE", Answer::AcknowledgedTwice,
         R"({"circleId":"lab-circle","accessToken":"lab-access","refreshToken":"lab-refresh",)"
         R"("localToken":"lab-local","cloudHost":"circle.dro.localhost"})"},
        {"TOGGLE_CIRCLE_STATE", Answer::Acknowledged, R"({"toggle":"off"})"}};
    return all;
}

const Command* findCommand(const std::string& name) {
    const auto& all = commands();
    const auto found = std::find_if(all.begin(), all.end(), [&](const Command& known) { return known.name == name; });
    return found == all.end() ? nullptr : &*found;
}

std::string newTransaction() {
    std::array<unsigned char, 16> bytes{};
    RAND_bytes(bytes.data(), bytes.size());
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::array<char, 4> pair{};
        std::snprintf(pair.data(), pair.size(), "%s%02x", i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "",
                      static_cast<unsigned>(bytes.at(i)));
        text += pair.data();
    }
    return text;
}

std::string envelope(const std::string& transaction, const std::string& command, const std::string& data) {
    return R"({"UUID":)" + printJson(transaction) + R"(,"cmd":)" + printJson(command) +
           (data.empty() ? "" : R"(,"data":)" + data) + "}";
}

Outcome sendCommand(Lab& lab, const std::string& command, const std::string& data, std::chrono::milliseconds timeout,
                    const std::string& transaction) {
    const Command* known = findCommand(command);
    const Answer answer = known != nullptr ? known->answer : Answer::Acknowledged;
    const CloudRecord::Wanted wanted = decisive(answer, transaction, lab.store);
    const std::size_t from = lab.record.mark();
    const auto begin = std::chrono::steady_clock::now();
    lab.connector.deliver(envelope(transaction, command, data), command + " " + data + " (" + transaction + ")");

    Outcome outcome;
    outcome.answer = lab.record.await(from, wanted, timeout);
    outcome.took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    if (!outcome.answer) {
        outcome.text = "no answer within " + std::to_string(timeout.count() / 1000) + " s";
        return outcome;
    }
    outcome.success = isSuccess(answer, *outcome.answer);
    outcome.text = summary(*outcome.answer);
    return outcome;
}

}  // namespace lab

#include "circle_agent.h"

#include <array>

#include "store_fields.h"

namespace lab {

namespace {

// Long enough for the order's monitor to be waiting.
constexpr std::chrono::milliseconds kUsualDelay{300};

constexpr const char* kCircleDevice = "lab-circle-device-0001";

const char* nameOf(CircleMood mood) {
    constexpr std::array kNames{"success", "fail", "silent"};
    return kNames.at(static_cast<std::size_t>(mood));
}

}  // namespace

CircleAgent::CircleAgent(Timeline& timeline) : timeline_(timeline), delayMs_(kUsualDelay.count()) {
    store_.follow({"CircleCfgInternal"},
                  [this](std::string_view table, int, std::string_view name) { noticed(table, name); });
}

std::string CircleAgent::describe() const {
    return std::string(nameOf(mood_)) + ", answers after " + std::to_string(delayMs_) + " ms";
}

void CircleAgent::note(const std::string& what, Tone tone) {
    timeline_.note(Actor::CircleAgent, what, tone);
}

void CircleAgent::failsWith(const std::string& error) {
    const std::lock_guard lock(mutex_);
    error_ = error;
}

std::string CircleAgent::error() {
    const std::lock_guard lock(mutex_);
    return error_;
}

void CircleAgent::noticed(std::string_view table, std::string_view name) {
    const bool toggle = field::CircleCfgInternal::sorbEnableState.is(table, name);
    if (!toggle && !field::CircleCfgInternal::actionDROA.is(table, name)) {
        return;
    }
    const std::string order =
        store_.get(toggle ? field::CircleCfgInternal::sorbEnableState : field::CircleCfgInternal::actionDROA);
    if (order == "none") {
        return;
    }
    if (order == "activate") {
        store_.set(field::CircleDebug::sorbActivationProgress, "inProgress");
    }
    jobs_.after(std::chrono::milliseconds(delayMs_), [this, toggle, order] {
        if (mood_ == CircleMood::Silent) {
            store_.set(field::CircleDebug::sorbActivationProgress, "none");
            note("ignores \"" + order + "\" (mood: silent)", Tone::Bad);
        } else if (toggle) {
            answerToggle(order);
        } else {
            answerOrder(order);
        }
    });
}

void CircleAgent::fail(const Field& answer) {
    const std::string text = error();
    store_.set(field::CircleDebug::errorMessage, text);
    note("failed: " + text, Tone::Bad);
    store_.set(answer, "failed");
}

void CircleAgent::answerOrder(const std::string& order) {
    store_.set(field::CircleDebug::sorbActivationProgress, "none");
    if (mood_ == CircleMood::Fail) {
        return fail(field::CircleCfgInternal::activationStatusDROA);
    }
    const std::string done = order == "activate"     ? "activated"
                             : order == "deactivate" ? "deactivated"
                             : order == "provision"  ? "provisioned"
                                                     : "failed";
    store_.set(field::CircleDebug::errorMessage, "");
    if (done == "activated") {
        store_.set(field::CircleCfg::cuuid, kCircleDevice);
    } else if (done == "provisioned") {
        store_.set(field::CircleStatus::sorbStatus, "enabled");
    }
    store_.set(field::CircleStatus::activationStatus, done);
    note("is " + done);
    store_.set(field::CircleCfgInternal::activationStatusDROA, done);
}

void CircleAgent::answerToggle(const std::string& order) {
    if (mood_ == CircleMood::Fail) {
        return fail(field::CircleCfgInternal::sorbEnableStatusDROA);
    }
    const std::string done = order == "enable" ? "enabled" : "disabled";
    store_.set(field::CircleStatus::sorbStatus, done);
    note("is " + done);
    store_.set(field::CircleCfgInternal::sorbEnableStatusDROA, done);
}

void CircleAgent::answerNow(const std::string& answer, const std::string& error) {
    store_.set(field::CircleDebug::errorMessage, error);
    note("answers \"" + answer + "\" unasked");
    store_.set(field::CircleCfgInternal::activationStatusDROA, answer);
}

void CircleAgent::reportRunning(bool running) {
    note(running ? "runs" : "does not run");
    store_.set(field::CircleDebug::sorbAgentRunning, running ? "true" : "false");
}

void CircleAgent::reportProvisioned(bool provisioned) {
    note(provisioned ? "is provisioned" : "is not provisioned");
    store_.set(field::CircleDebug::sorbProvisioned, provisioned ? "true" : "false");
}

void CircleAgent::reportClient(const std::string& status) {
    note("remote client: " + status);
    store_.set(field::CircleDebug::rClientStatus, status);
}

}  // namespace lab

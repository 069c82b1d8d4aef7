// Circle: switches the provisioned service on and off.
#include <atomic>
#include <cstring>

#include "dro_circle.h"
#include "dro_durations.h"
#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_log.h"
#include "dro_monitor.h"
#include "dro_stop.h"

namespace dro {
namespace {

constexpr Field kEnableOrder{"CircleCfgInternal", "sorbEnableState"};

using ToggleText = FixedText<8>;

std::atomic<bool> first_check{false};  // a toggle ordered by this program is outstanding

bool getToggleState(const char* data, ToggleText& state) {
    const Json parsed(data != nullptr ? cJSON_Parse(data) : nullptr);
    if (!parsed) {
        LOG_ERROR("Failed to Parse Data Object\n");
        return false;
    }
    const char* toggle = json_text(parsed.get(), "toggle");
    if (toggle == nullptr) {
        LOG_NOTICE("Circle toggle state not present\n");
        return false;
    }
    if (std::strlen(toggle) >= ToggleText::capacity()) {
        LOG_ERROR("Overflow of received toggle state buffer\n");
        return false;
    }
    state.assign(toggle);
    return true;
}

// Answers a toggle that repeats the activation's transaction with the current state. Sends nothing in any other state.
void answer_repeated(const char* transUuid, const FixedText<16>& running) {
    if (running == "enabled") {
        sendTransactionACK(transUuid, kAckSuccess, "Already enabled");
    } else if (running == "disabled") {
        sendTransactionACK(transUuid, kAckSuccess, "Already disabled");
    }
}

void order_toggle(const char* transUuid, bool enable, const Place& place) {
    if (write_enum(kEnableOrder, enable ? "enable" : "disable") != HAB_OK) {
        sendTransactionACK(transUuid, kAckFailure, "Failed to Set DAL Attr sorbEnableState");
        return;
    }
    first_check = true;
    write_ascii(fields::circle_toggle_uuid, transUuid);
    toggle_orders().give({.uuid = FixedText<128>(transUuid), .place = place});
}

void acknowledge(const char* transUuid, unsigned status, const char* reason) {
    if (sendTransactionACK(transUuid, status, reason) != 0) {
        if (!stop_requested()) {
            write_bool(fields::CircleToggle, false);
        }
    } else {
        LOG_TRACE("TransAck API successfull\n");
    }
}

Order stored_toggle() {
    return {.uuid = read_ascii<128>(fields::circle_toggle_uuid)};
}

void report_answer(const char* uuid) {
    LOG_TRACE("Circle Running State is being toggled\n");
    const auto answer = read_enum<16>(fields::sorbEnableStatusDROA);
    if (answer.starts_with("enabled")) {
        acknowledge(uuid, kAckSuccess, "Success-Enabled");
    } else if (answer.starts_with("disabled")) {
        acknowledge(uuid, kAckSuccess, "Success-Disabled");
    } else {
        acknowledge(uuid, kAckFailure, "Fail-Circle State Toggle Failed");
    }
}

void report(Waited outcome, const Order& order) {
    const char* uuid = order.uuid.c_str();
    switch (outcome) {
        case Waited::signalled:
            report_answer(uuid);
            break;
        case Waited::timedOut:
            LOG_ERROR("Circle Toggle request timeout reached\n");
            acknowledge(uuid, kAckFailure, "Fail-Error timeout");
            break;
        default:
            LOG_ERROR("System Error Occured\n");
            acknowledge(uuid, kAckFailure, "Fail-System Error Occured");
            break;
    }
}

void t_Handler_circleToggle(const Order& order) {
    LOG_TRACE("Circle running state toggle Monitoring Thread Started!\n");
    LOG_TRACE("LastCircleTransUUID is %s\n", order.uuid.c_str());
    if (!lock_monitor(mutex_toggle_lock, "Unable to Lock Circle State toggle Mutex\n")) {
        return;
    }
    const AdoptedLock held(mutex_toggle_lock);
    if (wait_and_report(mutex_toggle_lock, circleToggleResponse, order, durations().circleWatch,
                        [&order](Waited outcome) { report(outcome, order); })) {
        first_check = false;
        write_bool(fields::CircleToggle, false);
        write_enum(fields::sorbEnableStatusDROA, "none");
    }
}

constexpr OrderKind kToggle{
    .flag = fields::CircleToggle,
    .callbackText = "Circle Toggle callback\n",
    .threadStartedText = "Successful to spawn thread for CircleToggle\n",
    .threadFailedText = "Failed to initialize Thread for CircleAct\n",  // the activation's text; keep it
    .threadRequired = true,
    .flagResetText = "CircleToggle Reset to false\n",
    .monitor = t_Handler_circleToggle,
    .storedOrder = stored_toggle,
};

}  // namespace

Orders& toggle_orders() {
    static Immortal<Orders> orders(kToggle);
    return *orders;
}

void toggle_circle(const char* transUuid, JsonText data) {
    LOG_TRACE("Toggle circle running state request\n");
    const auto activationUuid = read_ascii<128>(fields::circle_uuid);
    const auto serviceState = read_enum<16>(fields::activationStatus);
    const auto running = read_enum<16>(fields::sorbStatus);
    if (serviceState != "provisioned") {
        sendTransactionACK(transUuid, kAckFailure, "Invalid request");
        return;
    }
    if (activationUuid == transUuid) {
        answer_repeated(transUuid, running);
        return;
    }
    ToggleText wanted;
    if (!getToggleState(data.get(), wanted)) {
        sendTransactionACK(transUuid, kAckFailure, "Error in circle toggle state message");
        return;
    }
    LOG_TRACE("Toggle State received: %s\n", wanted.c_str());
    const bool enable = wanted == "on";
    if (!enable && wanted != "off") {
        sendTransactionACK(transUuid, kAckFailure, "Invalid toggle request");
        return;
    }
    if (running == (enable ? "enabled" : "disabled")) {
        if (sendTransactionACK(transUuid, kAckSuccess, enable ? "Success-Enabled" : "Success-Disabled") != 0 &&
            !stop_requested()) {
            write_bool(fields::CircleToggle, false);
        }
        return;
    }
    if (const Place place = take_order_place(fields::CircleToggle, transUuid)) {
        order_toggle(transUuid, enable, place);
    }
}

void circleToggle_cbHandler(void* /*context*/) {
    toggle_orders().on_flag_change();
}

void sorbEnableStatus_cbHandler(void* /*context*/) {
    if (!first_check) {
        LOG_TRACE("sorbEnableStatusDROA field toggled by DroAgent\n");
        return;
    }
    LOG_TRACE("Circle Toggle Status field change callback\n");
    const auto answer = read_enum<16>(fields::sorbEnableStatusDROA);
    const auto activationUuid = read_ascii<128>(fields::circle_uuid);
    if (!answer.starts_with("enabled") && !answer.starts_with("disabled") && !answer.starts_with("fail")) {
        LOG_TRACE("sorbEnableStatusDROA field set to none\n");
        return;
    }
    if (circleToggleResponse.signal() != 0) {
        LOG_ERROR("Unable to trigger toggle signal, when sorbStatus field is changed\n");
        acknowledge(activationUuid.c_str(), kAckFailure, "Fail- System Resource Available");
    }
}

}  // namespace dro

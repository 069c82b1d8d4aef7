// Parental control: activation, provisioning, switching off and on, and failures.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "cloud_summary.h"
#include "store_fields.h"
#include "tour.h"

namespace lab {

namespace {

using std::chrono::milliseconds;

constexpr const char* kProvision =
    R"({"circleId":"lab-circle","accessToken":"lab-access","refreshToken":"lab-refresh","localToken":"lab-local",)"
    R"("cloudHost":"circle.dro.localhost"})";
constexpr const char* kPlain = R"({"overRide":0})";

std::string deliver(Tour& tour, const std::string& command, const std::string& data,
                    const std::string& transaction = newTransaction()) {
    tour.lab().connector.deliver(envelope(transaction, command, data), command + " " + data);
    return transaction;
}

void deviceReported(Tour& tour, std::size_t from, const std::string& transaction) {
    const auto report = tour.request(from, "Circle device report", [&](const CloudRequest& request) {
        return request.endpoint == "/pc/circle/cuuid" && request.text("uuid") == transaction;
    });
    checkSame("circleUUID", report->text("circleUUID"), tour.lab().store.get(field::CircleCfg::cuuid));
}

// The monitor resets the order as its last action.
void orderReset(Tour& tour) {
    tour.stored(field::CircleCfgInternal::activationStatusDROA, "none");
    tour.stored(field::CircleCfgInternal::actionDROA, "none");
}

std::string activated(Tour& tour) {
    const std::size_t from = tour.lab().record.mark();
    std::string transaction = deliver(tour, "ACTIVATE_CIRCLE", kPlain);
    deviceReported(tour, from, transaction);
    orderReset(tour);
    checkSame("acknowledgements", std::to_string(tour.acknowledgements(from, transaction)), "0");
    return transaction;
}

void provisioned(Tour& tour, const std::string& activation) {
    const Store& store = tour.lab().store;
    const std::size_t from = tour.lab().record.mark();
    const std::string transaction = deliver(tour, "PROVISION_CIRCLE", kProvision);
    tour.acknowledgement(from, transaction, "1", "Success: Provision running");
    tour.acknowledgement(from, activation, "1", "Success-Provisioned_");
    checkSame("circleId", store.get(field::CircleCfg::circleId), "lab-circle");
    checkSame("cloudhost", store.get(field::CircleCfg::cloudhost), "circle.dro.localhost");
    const auto list = tour.request(from, "device list", [](const CloudRequest& request) {
        return request.endpoint == "/syncCD/" && request.text("type") == "CDIL";
    });
    checkSame("syncAt", list->text("syncAt"), "PROVISION");
    tour.stored(field::DroStatus::CircleProvision, "false");
    tour.stored(field::CircleStatus::sorbStatus, "enabled");
}

void toggled(Tour& tour, const std::string& toggle, const std::string& reason, const std::string& state) {
    tour.acknowledged("TOGGLE_CIRCLE_STATE", R"({"toggle":")" + toggle + "\"}", "1", reason);
    tour.stored(field::CircleStatus::sorbStatus, state);
    tour.stored(field::DroStatus::CircleToggle, "false");
    tour.stored(field::CircleCfgInternal::sorbEnableStatusDROA, "none");
}

void health(Tour& tour, const std::string& feature, const std::string& state, const std::function<void()>& act) {
    const std::size_t from = tour.lab().record.mark();
    act();
    const auto event = tour.request(from, "device event", [&](const CloudRequest& request) {
        return request.endpoint == "/deviceEvents" && request.text("feature") == feature;
    });
    checkSame("state", event->text("state"), state);
}

void failsOrIsSilent(Tour& tour) {
    Lab& lab = tour.lab();
    tour.step("a failed activation is refused with the Circle agent's reason", [&] {
        lab.circle.failsWith("no licence");
        lab.circle.mood(CircleMood::Fail);
        tour.acknowledged("ACTIVATE_CIRCLE", kPlain, "0", "Activation-Failed_no licence");
        orderReset(tour);
        lab.circle.mood(CircleMood::Success);
    });
    tour.step("a failure reported before the order is ignored; the order times out", [&] {
        lab.circle.mood(CircleMood::Silent);
        lab.circle.answerNow("failed", "radio busy");
        const std::size_t from = lab.record.mark();
        const std::string transaction = deliver(tour, "ACTIVATE_CIRCLE", kPlain);
        tour.acknowledgement(from, transaction, "0", "Activation-Failed_radio busy", tour.pace().circleWatch);
        orderReset(tour);
    });
    tour.step("an order times out when the Circle agent does not answer", [&] {
        const std::size_t from = lab.record.mark();
        const std::string transaction = deliver(tour, "ACTIVATE_CIRCLE", kPlain);
        tour.acknowledgement(from, transaction, "0", "Activation-Failed_FAIL-Error TimeOut", tour.pace().circleWatch);
        orderReset(tour);
        lab.circle.mood(CircleMood::Success);
    });
}

void reportsHealth(Tour& tour) {
    Lab& lab = tour.lab();
    tour.step("the Circle agent's health is reported to the cloud", [&] {
        health(tour, "SORB_agent_running", "true", [&] { lab.circle.reportRunning(true); });
        health(tour, "SORB_provisioned", "true", [&] { lab.circle.reportProvisioned(true); });
        health(tour, "RCLIENT", "CONNECTED", [&] { lab.circle.reportClient("connected"); });
        health(tour, "RCLIENT", "DISCONNECTED", [&] { lab.circle.reportClient("Connected"); });
    });
}

void switches(Tour& tour) {
    tour.step("switch it off", [&] { toggled(tour, "off", "Success-Disabled", "disabled"); });
    tour.step("switch it on", [&] { toggled(tour, "on", "Success-Enabled", "enabled"); });
    tour.step("switch it on again: no change", [&] { toggled(tour, "on", "Success-Enabled", "enabled"); });
    tour.step("a toggle that is neither on nor off is refused",
              [&] { tour.acknowledged("TOGGLE_CIRCLE_STATE", R"({"toggle":"ON"})", "0", "Invalid toggle request"); });
}

// Waits for a line in the agent's log after offset `from`. Only the log shows that a monitor is waiting.
void awaitLog(const Tour& tour, const std::string& file, std::uintmax_t from, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + tour.pace().circleWatch;
    for (;;) {
        std::ifstream log(file, std::ios::binary);
        log.seekg(static_cast<std::streamoff>(from));
        const std::string lines{std::istreambuf_iterator<char>(log), {}};
        if (lines.find(text) != std::string::npos) {
            return;
        }
        check(std::chrono::steady_clock::now() < deadline, "the agent's log does not contain: " + text);
        std::this_thread::sleep_for(milliseconds(2));
    }
}

void overlaps(Tour& tour) {
    Lab& lab = tour.lab();
    tour.step("a second activation while one runs is refused; the first continues", [&] {
        const std::size_t from = lab.record.mark();
        const std::uintmax_t logged = std::filesystem::file_size(lab.logFile());
        Store watching;
        std::string first;
        check(watching.await(
                  {field::CircleDebug::sorbActivationProgress.table},
                  [&] {
                      if (first.empty()) {
                          first = deliver(tour, "ACTIVATE_CIRCLE", kPlain);
                      }
                      return watching.get(field::CircleDebug::sorbActivationProgress) == "inProgress";
                  },
                  milliseconds(5000)),
              "the Circle agent did not receive the order");
        // The refusal resets the flag. Before this line, the reset would prevent the first order's monitor from
        // starting.
        awaitLog(tour, lab.logFile(), logged, "Circle Activation Monitoring Thread Started!");
        tour.acknowledged("ACTIVATE_CIRCLE", kPlain, "0", "Earlier SORB activation request already in progress");
        deviceReported(tour, from, first);
        orderReset(tour);
    });
}

}  // namespace

void tourCircle(Tour& tour) {
    Lab& lab = tour.lab();
    tour.settle(true);
    std::string activation;
    tour.step("provisioning without an activation is refused", [&] {
        tour.acknowledged("PROVISION_CIRCLE", kProvision, "0", "Invalid Operation, Circle Action was not initiated");
    });
    tour.step("activate: the cloud receives the Circle device instead of an acknowledgement",
              [&] { activation = activated(tour); });
    tour.step("the same activation again is acknowledged and reported again", [&] {
        const std::size_t from = lab.record.mark();
        deliver(tour, "ACTIVATE_CIRCLE", kPlain, activation);
        tour.acknowledgement(from, activation, "1", "Already Activated");
        deviceReported(tour, from, activation);
        tour.stored(field::CircleCfgInternal::activationStatusDROA, "none");
    });
    tour.step("a toggle before provisioning is refused",
              [&] { tour.acknowledged("TOGGLE_CIRCLE_STATE", R"({"toggle":"off"})", "0", "Invalid request"); });
    tour.step("provision: acknowledged twice, and a device list follows", [&] { provisioned(tour, activation); });
    tour.step("a second provisioning is refused", [&] {
        tour.acknowledged("PROVISION_CIRCLE", kProvision, "0", "Invalid Operation, Circle Action was not initiated");
    });
    switches(tour);
    reportsHealth(tour);
    tour.step("deactivate", [&] {
        tour.acknowledged("DEACTIVATE_CIRCLE", kPlain, "1", "Success-Deactivated_");
        orderReset(tour);
        tour.stored(field::CircleStatus::sorbStatus, "disabled");
    });
    failsOrIsSilent(tour);
    overlaps(tour);
}

}  // namespace lab

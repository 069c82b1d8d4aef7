// The agent's start, registration and shutdown.
#include <sys/stat.h>

#include <fstream>

#include "program_folder.h"
#include "store_fields.h"
#include "tour.h"

namespace lab {

namespace {

constexpr const char* kPidFile = "/tmp/droagent.pid";
constexpr int kMessagePort = 4466;

CloudRecord::Request registrationSince(Tour& tour, std::size_t from) {
    return tour.request(from, "registration",
                        [](const CloudRequest& request) { return request.endpoint == "/addJorvDeviceId/"; });
}

void checkIdentity(Tour& tour, const CloudRequest& registration) {
    const Store& store = tour.lab().store;
    checkSame("serialNo", registration.text("serialNo"), store.get(field::General::FSN));
    checkSame("deviceType", registration.text("deviceType"), store.get(field::General::DeviceName));
    checkSame("modelNumber", registration.text("modelNumber"), store.get(field::General::DeviceModel));
    checkSame("macaddress", registration.text("macaddress"), store.get(field::General::DefaultMAC));
    checkSame("firmwareVersion", registration.text("firmwareVersion"), store.get(field::General::FwRevision));
    checkSame("jorvDeviceId", registration.text("jorvDeviceId"), store.get(field::JorvagentCfg::jorv_agent_id));
}

void forget(Tour& tour) {
    tour.lab().store.set(field::DROStatus::addJorvdeviceIdDone, "false");
    tour.lab().store.set(field::DroCfg::claimState, "false");
}

void answerRegistration(Tour& tour, bool claimed) {
    RegistrationAnswer answer;
    answer.claimState = claimed;
    tour.lab().cloud.registration(answer);
}

}  // namespace

void tourStart(Tour& tour) {
    Lab& lab = tour.lab();
    const std::size_t from = lab.record.mark();
    tour.step("the agent starts and accepts cloud messages on port 4466", [&] {
        tour.startAgent();
        checkSame("published address", lab.connector.address(), "localhost:4466");
        check(isListening(kMessagePort), "port 4466 is closed");
    });
    tour.step("its version is in the store",
              [&] { checkSame("version", lab.store.get(field::DalModuleVersion::DroagentVersion), "1.3.10"); });
    tour.step("its pid file contains its pid", [&] {
        int pid = 0;
        std::ifstream(kPidFile) >> pid;
        checkSame("pid", std::to_string(pid), std::to_string(lab.agent.pid()));
    });
    tour.step("a second agent refuses to start", [&] {
        AgentProcess second(lab.timeline);
        second.start({besideUs("droagent"), lab.logFile() + ".second", false, {}});
        check(second.awaitEnd(std::chrono::seconds(5)) == 1, "it did not exit with status 1");
    });
    tour.step("it requests a connection from the connector and registers the router", [&] {
        checkIdentity(tour, *registrationSince(tour, from));
        tour.stored(field::JorvagentCfg::jorv_force_connection, "0");
        tour.stored(field::DROStatus::addJorvdeviceIdDone, "true");
    });
}

void tourRegistration(Tour& tour) {
    Lab& lab = tour.lab();
    std::size_t from = 0;
    tour.step("an unregistered router requests a connection from its connector and registers", [&] {
        forget(tour);
        answerRegistration(tour, true);
        from = lab.record.mark();
        lab.connector.report({});
        registrationSince(tour, from);
        tour.stored(field::DROStatus::addJorvdeviceIdDone, "true");
    });
    tour.step("the registration lists the router's features", [&] {
        const auto registration = registrationSince(tour, from);
        checkSame("supportedFeatures", printJson(member(registration->json, "supportedFeatures")),
                  R"({"CDIL":true,"NewDeviceNoti":true,"DeviceTagging":true,"BackgroudSpeedtest":true})");
    });
    tour.step("the answer's claim state is stored: claimed", [&] { tour.stored(field::DroCfg::claimState, "true"); });
    tour.step("a registered router is not registered again", [&] {
        from = lab.record.mark();
        lab.connector.nudge();
        tour.acknowledged("UPDATE_DTN_SCHEDULE", findCommand("UPDATE_DTN_SCHEDULE")->example, "1", "Success");
        for (const auto& request : lab.record.since(from)) {
            check(request->endpoint != "/addJorvDeviceId/", "it was registered again");
        }
    });
    tour.step("the answer's claim state is stored: not claimed", [&] {
        lab.store.set(field::DroCfg::claimState, "true");
        answerRegistration(tour, false);
        from = lab.record.mark();
        lab.registerAgain();
        registrationSince(tour, from);
        tour.stored(field::DroCfg::claimState, "false");
        tour.stored(field::DROStatus::addJorvdeviceIdDone, "true");
    });
}

void tourShutdown(Tour& tour) {
    Lab& lab = tour.lab();
    tour.step("on SIGUSR1 the agent exits with status 0", [&] {
        const auto status = lab.agent.stop(std::chrono::seconds(5));
        check(status.has_value(), "it did not exit");
        check(*status == 0, "it exited with status " + std::to_string(*status));
    });
    tour.step("its pid file is gone", [&] {
        struct stat file {};
        check(::stat(kPidFile, &file) != 0, std::string(kPidFile) + " is still there");
    });
    tour.step("its port is closed", [&] { check(!isListening(kMessagePort), "port 4466 is still open"); });
}

}  // namespace lab

// The cloud refuses, does not answer, answers garbage or is slow.
#include "store_fields.h"
#include "tour.h"

namespace lab {

namespace {

using std::chrono::milliseconds;

// Delivers a harmless command, waits for `attempts` acknowledgements of it and checks that no more arrive before the
// next command's. Returns the time between the first attempt and the last.
milliseconds attemptsOf(Tour& tour, int attempts) {
    Lab& lab = tour.lab();
    const std::string transaction = newTransaction();
    const std::size_t from = lab.record.mark();
    const std::string data = findCommand("UPDATE_DTN_SCHEDULE")->example;
    lab.connector.deliver(envelope(transaction, "UPDATE_DTN_SCHEDULE", data), "UPDATE_DTN_SCHEDULE");
    std::chrono::steady_clock::time_point first;
    int seen = 0;
    const auto last = tour.request(
        from, "attempt " + std::to_string(attempts),
        [&](const CloudRequest& request) {
            if (request.text("transactionId") == transaction && ++seen == 1) {
                first = request.at;
            }
            return seen == attempts;
        },
        attempts * tour.pace().pause);
    tour.lab().cloud.behave(Mood::Accept);
    // Commands run one after the other. Once the next one is acknowledged, this one and its last pause have ended.
    const std::size_t next = lab.record.mark();
    const std::string probe = newTransaction();
    lab.connector.deliver(envelope(probe, "UPDATE_DTN_SCHEDULE", data), "UPDATE_DTN_SCHEDULE");
    tour.acknowledgement(next, probe, "1", "Success", tour.pace().pause);
    checkSame("attempts", std::to_string(tour.acknowledgements(from, transaction)), std::to_string(attempts));
    return std::chrono::duration_cast<milliseconds>(last->at - first);
}

void answeredOnce(Tour& tour, Mood mood) {
    tour.lab().cloud.behave(mood);
    attemptsOf(tour, 1);
}

}  // namespace

void tourCloudTrouble(Tour& tour) {
    Lab& lab = tour.lab();
    tour.settle(true);
    tour.step("a refused acknowledgement is not repeated", [&] { answeredOnce(tour, Mood::Refuse); });
    tour.step("an acknowledgement answered with HTTP 500 and a body is not repeated",
              [&] { answeredOnce(tour, Mood::Error); });
    tour.step("an acknowledgement answered without JSON is not repeated", [&] { answeredOnce(tour, Mood::Garbage); });
    tour.step("an acknowledgement without an answer is repeated after a pause", [&] {
        lab.cloud.behave(Mood::Empty, 1);
        check(attemptsOf(tour, 2) >= tour.pace().pause, "the pause was too short");
    });
    tour.step("an acknowledgement is repeated when the cloud closes the connection early", [&] {
        lab.cloud.behave(Mood::Close, 1);
        check(attemptsOf(tour, 2) >= tour.pace().pause, "the pause was too short");
    });
    tour.step("an acknowledgement is dropped after three attempts", [&] {
        lab.cloud.behave(Mood::Close, 3);
        check(attemptsOf(tour, 3) >= 2 * tour.pace().pause, "the pauses were too short");
    });
    tour.step("the agent waits for a slow cloud", [&] {
        lab.cloud.slow(milliseconds(400));
        attemptsOf(tour, 1);
        lab.cloud.slow(milliseconds(0));
    });
    tour.step("a refused registration is tried three times, and again at the connector's next report", [&] {
        lab.cloud.behave(Mood::Refuse);
        const std::size_t from = lab.record.mark();
        int seen = 0;
        lab.registerAgain();
        tour.request(
            from, "third registration",
            [&](const CloudRequest& request) { return request.endpoint == "/addJorvDeviceId/" && ++seen == 3; },
            3 * tour.pace().pause);
        lab.cloud.behave(Mood::Accept);
        checkSame("registered", lab.store.get(field::DROStatus::addJorvdeviceIdDone), "false");
        const std::size_t next = lab.record.mark();
        lab.connector.nudge();
        tour.request(
            next, "registration", [](const CloudRequest& request) { return request.endpoint == "/addJorvDeviceId/"; },
            tour.pace().pause);
        tour.stored(field::DROStatus::addJorvdeviceIdDone, "true");
    });
}

}  // namespace lab

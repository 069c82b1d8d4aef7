// Events that the router reports to the cloud.
#include <array>
#include <ctime>

#include "cloud_summary.h"
#include "store_fields.h"
#include "tour.h"

namespace lab {

namespace {

// The UTC time of day `seconds` from now.
std::string timeOfDayIn(int seconds) {
    const std::time_t when = std::time(nullptr) + seconds;
    std::tm utc{};
    gmtime_r(&when, &utc);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &utc);
    return text.data();
}

CloudRecord::Wanted ofType(const std::string& type) {
    return
        [type](const CloudRequest& request) { return request.endpoint == "/syncCD/" && request.text("type") == type; };
}

std::string ofDevice(const CloudRequest& request, const char* name) {
    return textOf(member(request.json, "cd"), name);
}

void tagNotified(Tour& tour, const std::string& device, bool online) {
    const std::size_t from = tour.lab().record.mark();
    const int row = tour.lab().devices.deviceOnline(device, online);
    const auto request = tour.request(from, "tag notification", ofType("DTN"));
    checkSame("cdName", ofDevice(*request, "cdName"), device);
    checkSame("mac", ofDevice(*request, "mac"), macText(tour.lab().population.at(row).mac));
    checkSame("cdStatus", ofDevice(*request, "cdStatus"), online ? "1" : "0");
    checkSame("cdNetwork", ofDevice(*request, "cdNetwork"), "Lab router");
    tour.stored(field::DALHNotifyDTN::Index, "257");
}

void speedTestPushed(Tour& tour, const SpeedTest& result, const std::string& kind) {
    const std::size_t from = tour.lab().record.mark();
    tour.lab().devices.speedTestDone(result);
    const auto request =
        tour.request(from, "speed test", [](const CloudRequest& each) { return each.endpoint == "/pushStData/"; });
    checkSame("type", request->text("type"), kind);
    const Json& data = member(request->json, "data");
    checkSame("dl", textOf(data, "dl"), std::to_string(result.down));
    checkSame("ul", textOf(data, "ul"), std::to_string(result.up));
    checkSame("isp", textOf(data, "isp"), result.provider);
    tour.stored(field::BSTCfg::BSTStatus, "Unknown");
}

void droppedUnlessClaimed(Tour& tour) {
    Lab& lab = tour.lab();
    Store watching;
    lab.store.set(field::DroCfg::claimState, "false");
    const std::size_t from = lab.record.mark();
    check(watching.awaitWrite(
              field::RADebugLog::dbgArg1, [&] { lab.devices.deviceJoined("Nobody's phone"); }, std::chrono::seconds(5)),
          "the event was not queued");
    // Events are sent in order, and an update is sent even by an unclaimed router. Once it has arrived, the agent has
    // handled the first event.
    lab.devices.deviceUpdated("Nobody's phone");
    tour.request(from, "device update", ofType("UPDATE_CD"));
    for (const auto& request : lab.record.since(from)) {
        check(request->text("type") != "NDN", "it was sent");
    }
    lab.store.set(field::DroCfg::claimState, "true");
}

void dailySync(Tour& tour) {
    Lab& lab = tour.lab();
    RegistrationAnswer answer;
    answer.syncTime = timeOfDayIn(3);
    lab.cloud.registration(answer);
    const std::size_t from = lab.record.mark();
    lab.registerAgain();
    const auto request = tour.request(from, "daily sync", ofType("CDIL"));
    checkSame("syncAt", request->text("syncAt"), "PERIODIC");
    checkSame("devices", std::to_string(deviceListOf(*request).size()), std::to_string(lab.population.rows().size()));
    tour.stored(field::DroStatus::cdilsyncAt, "");
}

}  // namespace

void tourEvents(Tour& tour) {
    Lab& lab = tour.lab();
    tour.settle(true);
    tour.step("a new device joins", [&] {
        const std::size_t from = lab.record.mark();
        const int row = lab.devices.deviceJoined("Guest \"phone\"");
        const auto request = tour.request(from, "new-device notification", ofType("NDN"));
        checkSame("cdName", ofDevice(*request, "cdName"), "Guest \"phone\"");
        checkSame("mac", ofDevice(*request, "mac"), macText(lab.population.at(row).mac));
        checkSame("cdStatus", ofDevice(*request, "cdStatus"), "1");
    });
    const std::string tagged = lab.population.at(1).name;
    lab.store.set(field::Dilsignature::IsTagged.at(1), "both");
    tour.step(tagged + ", tagged, goes offline", [&] { tagNotified(tour, tagged, false); });
    tour.step(tagged + ", tagged, comes back online", [&] { tagNotified(tour, tagged, true); });
    tour.step("a scheduled speed test finishes", [&] { speedTestPushed(tour, SpeedTest{}, "B"); });
    tour.step("a manual speed test finishes", [&] {
        SpeedTest result;
        result.down = 512;
        result.scheduled = false;
        speedTestPushed(tour, result, "M");
    });
    tour.step("an unclaimed router does not report new devices", [&] { droppedUnlessClaimed(tour); });
    tour.step("the daily sync, three seconds from now", [&] { dailySync(tour); });
}

}  // namespace lab

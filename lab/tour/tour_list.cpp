// The device list: requested, empty, late, and updated for one device.
#include <set>

#include "cloud_summary.h"
#include "store_fields.h"
#include "tour.h"

namespace lab {

namespace {

constexpr std::chrono::seconds kListPatience{5};

// The MACs in the list must match those of the rows.
void checkDevices(Tour& tour, const CloudRequest& request, const char* macMember, const std::vector<int>& rows) {
    std::set<std::string> listed;
    for (const Json& device : deviceListOf(request)) {
        listed.insert(textOf(device, macMember));
    }
    for (const int row : rows) {
        const Device wanted = tour.lab().population.at(row);
        check(listed.contains(macText(wanted.mac)), wanted.name + " is not in the list");
    }
    checkSame("devices", std::to_string(deviceListOf(request).size()), std::to_string(rows.size()));
}

void fetched(Tour& tour, const std::string& status, const std::string& fetchFor, const std::vector<int>& rows) {
    const auto answer = tour.listed("FETCH_CD", R"({"status":)" + status + R"(,"fetchFor":")" + fetchFor + "\"}");
    checkSame("fetchFor", answer->text("fetchFor"), fetchFor);
    checkDevices(tour, *answer, "cdMac", rows);
    tour.stored(field::DroStatus::cdilTimeout, "false");
    tour.stored(field::DroStatus::cdilTransUuid, "Noop");
}

// Checks that a list request is refused after the watch period. Its list is empty or never built.
void timedOut(Tour& tour, std::size_t from, const std::string& transaction) {
    const auto refusal = tour.request(
        from, "refusal of the list request",
        [&](const CloudRequest& request) {
            return request.text("transactionId") == transaction && request.text("transactionStatus") == "0";
        },
        tour.pace().listWatch);
    checkSame("failureReason", refusal->text("failureReason"), "CDIL:Fail-Error timeout");
    tour.stored(field::RADebugLog::raCdilTimeout, "true");
    tour.stored(field::DroStatus::cdilTimeout, "false");
}

void oddLists(Tour& tour) {
    Lab& lab = tour.lab();
    tour.step("a list announced with one device too many contains the actual devices", [&] {
        lab.population.resize(3);
        lab.devices.mood(ServiceMood::Wrong);
        fetched(tour, "0", "app", lab.population.rows());
        lab.devices.mood(ServiceMood::Ok);
    });
    tour.step("an empty network returns an empty list, and its watch still times out", [&] {
        lab.population.resize(0);
        lab.store.set(field::RADebugLog::raCdilTimeout, "false");
        const std::size_t from = lab.record.mark();
        const auto answer = tour.listed("FETCH_CD", R"({"status":0,"fetchFor":"app"})");
        checkDevices(tour, *answer, "cdMac", {});
        tour.stored(field::DroStatus::cdilTransUuid, "Noop");
        timedOut(tour, from, answer->text("transactionId"));
        lab.population.resize(12);
    });
    tour.step("a missing list is refused after the time-out", [&] {
        lab.devices.mood(ServiceMood::Silent);
        lab.store.set(field::RADebugLog::raCdilTimeout, "false");
        const std::size_t from = lab.record.mark();
        const std::string transaction = newTransaction();
        const std::string data = R"({"status":0,"fetchFor":"app"})";
        lab.connector.deliver(envelope(transaction, "FETCH_CD", data), "FETCH_CD " + data);
        timedOut(tour, from, transaction);
        lab.devices.mood(ServiceMood::Ok);
        // The unanswered transaction is still pending. Without this, the next unrequested list would answer it.
        lab.store.set(field::DroStatus::cdilTransUuid, "Noop");
    });
}

}  // namespace

void tourDeviceList(Tour& tour) {
    Lab& lab = tour.lab();
    tour.settle(false);
    lab.population.setOnline(2, false);
    lab.population.setOnline(4, false);
    tour.step("DEVICE_CLAIMED claims the router and returns all devices", [&] {
        const auto answer = tour.listed("DEVICE_CLAIMED", R"({"fetchFor":"claim"})");
        checkSame("fetchFor", answer->text("fetchFor"), "claim");
        checkDevices(tour, *answer, "cdMac", lab.population.rows());
        tour.stored(field::DroCfg::claimState, "true");
        tour.stored(field::DroStatus::cdilTransUuid, "Noop");
    });
    tour.step("fetch all devices", [&] { fetched(tour, "0", "app", lab.population.rows()); });
    tour.step("fetch the online devices", [&] { fetched(tour, "1", "online", lab.population.rows(true)); });
    tour.step("fetch the offline devices", [&] { fetched(tour, "2", "offline", lab.population.rows(false)); });
    tour.step("the fetch stores its result for support", [&] {
        check(lab.store.await(
                  {field::RADebugLog::dbgArg2.table},
                  [&] {
                      const std::string result = lab.store.get(field::RADebugLog::dbgArg2);
                      return result.starts_with("FETCH_CD,") && result.ends_with(",success");
                  },
                  kListPatience),
              "dbgArg2 is \"" + lab.store.get(field::RADebugLog::dbgArg2) + "\"");
    });
    tour.step("fetch 256 devices", [&] {
        lab.population.resize(kRows);
        fetched(tour, "0", "app", lab.population.rows());
    });
    oddLists(tour);
    tour.step("one device is updated", [&] {
        const std::size_t from = lab.record.mark();
        const int row = lab.devices.deviceUpdated(lab.population.at(1).name);
        const auto update = tour.request(
            from, "device update", [](const CloudRequest& request) { return request.text("type") == "UPDATE_CD"; });
        checkSame("syncAt", update->text("syncAt"), "CD_UPDATE");
        checkDevices(tour, *update, "mac", {row});
        tour.stored(field::DALHNotifyCDUPDATE::IndexCD, "257");
        tour.stored(field::DroStatus::cdilsyncAt, "");
    });
}

}  // namespace lab

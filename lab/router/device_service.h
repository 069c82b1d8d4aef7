// device_service.h - the router's device service: executes the requests that the agent writes into DALHConfig, and
// announces device events. Any thread may call it.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

#include "delayed_jobs.h"
#include "population.h"
#include "store.h"
#include "timeline.h"

namespace lab {

// Ok executes requests, Silent ignores them, Wrong announces lists with one device more than their masks mark.
enum class ServiceMood { Ok, Silent, Wrong };

struct SpeedTest {
    std::uint32_t up = 48;
    std::uint32_t down = 256;
    std::uint32_t server = 4711;
    std::uint32_t latency = 12;
    std::string provider = "Lab Telecom";
    bool scheduled = true;
};

class DeviceService {
 public:
    DeviceService(Timeline& timeline, Population& population);
    // Waits for a request in progress and drops the pending ones.
    ~DeviceService() { store_.follow({}, nullptr); }
    DeviceService(const DeviceService&) = delete;
    DeviceService& operator=(const DeviceService&) = delete;

    void mood(ServiceMood mood) { mood_ = mood; }
    void slow(std::chrono::milliseconds delay) { delayMs_ = delay.count(); }
    std::string describe() const;

    // Device events on the router. Each returns the device's row, or throws std::runtime_error with a message for the
    // user.
    int deviceJoined(const std::string& name);
    // Also notifies the agent when the device is tagged for this state.
    int deviceOnline(const std::string& name, bool online);
    int deviceUpdated(const std::string& name);
    void speedTestDone(const SpeedTest& result);

 private:
    void noticed(std::string_view table, std::string_view name);
    void carryOut(std::uint32_t feature);
    void setBlocked(const Mac& mac, bool blocked);
    void setBlockedList(bool blocked);
    void tag();
    void customise();
    void removeDevice();
    void buildList();
    void closeList();
    void note(const std::string& what, Tone tone = Tone::Plain);
    std::string nameOfRow(int row) const;

    Timeline& timeline_;
    Population& population_;
    std::atomic<ServiceMood> mood_ = ServiceMood::Ok;
    std::atomic<std::int64_t> delayMs_;

    std::mutex listMutex_;
    bool listOut_ = false;         // a list has been announced and is not complete yet
    std::string listTransaction_;  // the transaction that the list answers; empty for none

    Store store_;
    DelayedJobs jobs_;  // last member: jobs stop before the members they use are destroyed
};

}  // namespace lab

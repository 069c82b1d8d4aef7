#include "process_stats.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

std::string folder_of(pid_t pid) {
    return "/proc/" + std::to_string(pid);
}

std::string contents(const std::string& path) {
    std::ifstream file(path);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.empty()) {
        throw std::runtime_error("cannot read " + path);
    }
    return text;
}

// Returns the number after "\nKEY:".
long number_after(const std::string& text, const std::string& key) {
    const auto place = text.find("\n" + key + ":");
    if (place == std::string::npos) {
        throw std::runtime_error("no " + key);
    }
    return std::stol(text.substr(place + key.size() + 2));
}

}  // namespace

Memory memory_of(pid_t pid) {
    const std::string text = contents(folder_of(pid) + "/smaps_rollup");
    return {number_after(text, "Rss"), number_after(text, "Pss"), number_after(text, "Private_Dirty")};
}

long peak_of(pid_t pid) {
    return number_after(contents(folder_of(pid) + "/status"), "VmHWM");
}

void reset_peak(pid_t pid) {
    constexpr const char* kResetPeak = "5";
    std::ofstream(folder_of(pid) + "/clear_refs") << kResetPeak << std::flush;
}

Activity activity_of(pid_t pid) {
    Activity activity;
    for (const auto& task : std::filesystem::directory_iterator(folder_of(pid) + "/task")) {
        const std::string status = contents(task.path() / "status");
        ++activity.threads;
        activity.contextSwitches +=
            number_after(status, "voluntary_ctxt_switches") + number_after(status, "nonvoluntary_ctxt_switches");
    }
    // After the program's name, which may contain blanks, fields count from 3. Fields 14 and 15 are the ticks.
    const std::string stat = contents(folder_of(pid) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    constexpr int kFirst = 3;
    constexpr int kUserTicks = 14;
    constexpr int kSystemTicks = 15;
    std::string field;
    for (int number = kFirst; number <= kSystemTicks && fields >> field; ++number) {
        if (number >= kUserTicks) {
            activity.cpuTicks += std::stol(field);
        }
    }
    return activity;
}

}  // namespace bench

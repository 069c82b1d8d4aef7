// The agent with shorter waits, for demonstrations and tests; installed only with the lab. Each wait is read from the
// environment in milliseconds. A variable that is not set leaves the normal wait.
#include <chrono>
#include <cstdlib>

#include "dro_durations.h"
#include "dro_main.h"
#include "dro_threads.h"

namespace {

void shorten(std::chrono::milliseconds& duration, const char* variable) {
    if (const char* text = std::getenv(variable)) {
        duration = std::chrono::milliseconds(std::strtol(text, nullptr, 10));
    }
}

}  // namespace

int main(int argc, char** argv) {
    dro::Durations durations;
    shorten(durations.retryPause, "DROAGENT_QUICK_PAUSE_MS");
    shorten(durations.listWatch, "DROAGENT_QUICK_LIST_WATCH_MS");
    shorten(durations.circleWatch, "DROAGENT_QUICK_CIRCLE_WATCH_MS");
    dro::set_durations(durations);
    dro::end_process(dro::droagent_main(argc, argv));
}

// paths.h - the measured paths. Each is independent, adds its results to the report and throws std::runtime_error when
// an expected event does not happen.
#pragma once

#include <chrono>

#include "measure.h"

namespace bench {

void measure_post(Report& report);
void measure_start(Report& report);
void measure_block(Report& report);
void measure_events(Report& report);
void measure_lists(Report& report);
void measure_queue(Report& report);
void measure_record(Report& report);
void measure_commands(Report& report);
void measure_lists_at_once(Report& report);
// Observes the idle agent for `duration`.
void measure_idle(Report& report, std::chrono::seconds duration);
void measure_circle(Report& report);
void measure_registration(Report& report);

}  // namespace bench

#include "measure.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "dro_json.h"

namespace bench {
namespace {

// To a tenth of a microsecond.
void add_times(cJSON* entry, const char* key, const std::vector<double>& times) {
    if (times.empty()) {
        return;
    }
    cJSON* array = cJSON_AddArrayToObject(entry, key);
    for (const double time : times) {
        cJSON_AddItemToArray(array, cJSON_CreateNumber(std::round(time * 10) / 10));
    }
}

}  // namespace

double Samples::quantile(double part) const {
    if (microseconds_.empty()) {
        throw std::runtime_error("nothing was measured");
    }
    std::vector<double> sorted = microseconds_;
    std::sort(sorted.begin(), sorted.end());
    const auto rank = static_cast<std::size_t>(std::ceil(part * static_cast<double>(sorted.size())));
    return sorted[std::max<std::size_t>(rank, 1) - 1];
}

std::vector<double> Samples::ascending(std::size_t most) const {
    std::vector<double> sorted = microseconds_;
    std::sort(sorted.begin(), sorted.end());
    if (sorted.size() <= most) {
        return sorted;
    }
    std::vector<double> kept;
    for (std::size_t place = 0; place < most; ++place) {
        kept.push_back(sorted[place * (sorted.size() - 1) / (most - 1)]);
    }
    return kept;
}

void Report::compare(const std::string& name, const Pair& pair, std::optional<Work> work) {
    const auto& [ours, floor] = pair;
    add({name, "us", ours.median(), ours.p99(), floor.median(), floor.p99(), ours.count(), ours.ascending(kKeptSamples),
         floor.ascending(kKeptSamples), std::move(work)});
}

void Report::fact(const std::string& name, const std::string& unit, double value, std::optional<double> floor,
                  std::optional<Work> work) {
    add({name, unit, value, {}, floor, {}, 1, {}, {}, std::move(work)});
}

void Report::add(Result result) {
    std::fprintf(stderr, "%-44s %12.1f %s", result.name.c_str(), result.value, result.unit.c_str());
    if (result.floor) {
        std::fprintf(stderr, ", floor %.1f", *result.floor);
    }
    std::fputc('\n', stderr);
    results_.push_back(std::move(result));
}

std::string Report::json() const {
    const dro::Json all(cJSON_CreateArray());
    for (const Result& result : results_) {
        cJSON* entry = cJSON_CreateObject();
        cJSON_AddItemToArray(all.get(), entry);
        cJSON_AddStringToObject(entry, "name", result.name.c_str());
        cJSON_AddStringToObject(entry, "unit", result.unit.c_str());
        cJSON_AddNumberToObject(entry, "value", result.value);
        cJSON_AddNumberToObject(entry, "samples", static_cast<double>(result.samples));
        const auto add_optional = [entry](const char* key, std::optional<double> number) {
            if (number) {
                cJSON_AddNumberToObject(entry, key, *number);
            }
        };
        add_optional("p99", result.p99);
        add_optional("floor", result.floor);
        add_optional("floor_p99", result.floorP99);
        add_times(entry, "times", result.times);
        add_times(entry, "floor_times", result.floorTimes);
        if (result.work) {
            cJSON_AddStringToObject(entry, "series", result.work->series.c_str());
            cJSON_AddNumberToObject(entry, "amount", result.work->amount);
        }
    }
    const dro::JsonText text(cJSON_Print(all.get()));
    return text ? text.get() : "[]";
}

}  // namespace bench

#include "measure.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "dro_json.h"

namespace bench {

double Samples::quantile(double part) const {
    if (microseconds_.empty()) {
        throw std::runtime_error("nothing was measured");
    }
    std::vector<double> sorted = microseconds_;
    std::sort(sorted.begin(), sorted.end());
    const auto rank = static_cast<std::size_t>(std::ceil(part * static_cast<double>(sorted.size())));
    return sorted[std::max<std::size_t>(rank, 1) - 1];
}

void Report::compare(const std::string& name, const Samples& ours, const Samples& floor) {
    add({name, "us", ours.median(), ours.p99(), floor.median(), floor.p99(), ours.count()});
}

void Report::part(const std::string& name, const Samples& samples) {
    add({name, "us", samples.median(), samples.p99(), {}, {}, samples.count()});
}

void Report::fact(const std::string& name, const std::string& unit, double value, std::optional<double> floor) {
    add({name, unit, value, {}, floor, {}, 1});
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
    }
    const dro::JsonText text(cJSON_Print(all.get()));
    return text ? text.get() : "[]";
}

}  // namespace bench

#include "json.h"

#include <cmath>

namespace lab {

namespace {

constexpr int kDeepest = 1000;
constexpr double kWholeMost = 1e15;  // a double holds every integer up to here exactly

}  // namespace

Json parseJson(const std::string& text) {
    bool tooDeep = false;
    const auto watchDepth = [&](int depth, Json::parse_event_t, const Json&) {
        tooDeep = tooDeep || depth > kDeepest;
        return true;
    };
    Json json = Json::parse(text, watchDepth, false);
    return tooDeep ? Json(Json::value_t::discarded) : json;
}

std::string printJson(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const Json& member(const Json& object, const char* name) {
    static const Json kNone;
    const auto found = object.find(name);
    return found == object.end() ? kNone : *found;
}

std::string textOf(const Json& object, const char* name) {
    const Json& text = member(object, name);
    return text.is_string() ? text.get<std::string>() : "";
}

Json numberFrom(double value) {
    const bool whole = std::trunc(value) == value && std::abs(value) < kWholeMost;
    return whole ? Json(static_cast<std::int64_t>(value)) : Json(value);
}

}  // namespace lab

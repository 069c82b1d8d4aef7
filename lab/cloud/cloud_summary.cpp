#include "cloud_summary.h"

namespace lab {

namespace {

std::string sizeOf(const Json& list) {
    return std::to_string(list.size()) + (list.size() == 1 ? " device" : " devices");
}

std::string shown(const Json& json) {
    return json.is_null() ? "" : printJson(json);
}

std::string details(const CloudRequest& request) {
    const Json& list = deviceListOf(request);
    if (request.endpoint == "/transactionAck/") {
        const std::string text = request.text("transactionStatus") + " " + request.text("failureReason");
        return text + (list.is_array() ? " with " + sizeOf(list) : "") + " (" + request.text("transactionId") + ")";
    }
    if (request.endpoint == "/syncCD/") {
        const std::string type = request.text("type");
        return list.is_array() ? type + " " + request.text("syncAt") + " with " + sizeOf(list)
                               : type + " " + textOf(member(request.json, "cd"), "cdName");
    }
    if (request.endpoint == "/pushStData/") {
        return request.text("type") + " " + shown(member(request.json, "data"));
    }
    if (request.endpoint == "/pc/circle/cuuid") {
        return request.text("circleUUID") + " (" + request.text("uuid") + ")";
    }
    if (request.endpoint == "/deviceEvents") {
        return request.text("feature") + " " + request.text("state");
    }
    return "jorvDeviceId " + request.text("jorvDeviceId") + ", features " +
           shown(member(request.json, "supportedFeatures"));
}

}  // namespace

const Json& deviceListOf(const CloudRequest& request) {
    const Json& relayed = member(request.json, "relayData");
    return member(relayed.is_null() ? request.json : relayed, "cdl");
}

std::string summary(const CloudRequest& request) {
    const std::string endpoint = request.endpoint.substr(std::min<std::size_t>(1, request.endpoint.size()));
    return request.good() ? endpoint + " " + details(request) : endpoint + " WRONG: " + request.fault;
}

}  // namespace lab

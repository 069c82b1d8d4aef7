#include "cloud_checks.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <vector>

#include "lab_provisioning.h"

namespace lab {

namespace {

constexpr std::size_t kTokenInputLongest = 63;
constexpr std::int64_t kClockTolerance = 300;  // seconds

using Problem = std::optional<std::string>;

Problem missing(const Json& object, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (!member(object, name).is_string()) {
            return std::string(name) + " is missing or not a string";
        }
    }
    return std::nullopt;
}

Problem oneOf(const Json& object, const char* name, std::initializer_list<std::string_view> allowed) {
    const std::string value = textOf(object, name);
    if (std::find(allowed.begin(), allowed.end(), value) == allowed.end()) {
        return std::string(name) + " is \"" + value + "\"";
    }
    return std::nullopt;
}

// Runs the checks in order and returns the first problem.
Problem first(std::initializer_list<std::function<Problem()>> checks) {
    for (const auto& check : checks) {
        if (auto problem = check()) {
            return problem;
        }
    }
    return std::nullopt;
}

Problem device(const Json& record, bool forTransaction) {
    if (auto problem = missing(record, {"connApMac", "cdName", "cdModel", "cdType", "cdBrand", "cdNetworkInfo",
                                        "cddisplayType", "connSsid", "downloadBw", "uploadBw", "deviceSignalStrength",
                                        "deviceLinkRate", "cdStatus", "cdTaggedStatus", "cdBlockedStatus"})) {
        return "device: " + *problem;
    }
    return forTransaction ? missing(record, {"cdMac", "cdIp", "cdConnInterface"})
                          : missing(record, {"mac", "cdIP", "cdConnectionInterface"});
}

Problem deviceList(const Json& list, bool forTransaction) {
    if (!list.is_array()) {
        return "cdl is not an array";
    }
    for (const Json& record : list) {
        if (auto problem = device(record, forTransaction)) {
            return problem;
        }
    }
    return std::nullopt;
}

Problem checkRegistration(const Json& body) {
    if (auto problem = missing(body, {"deviceType", "modelNumber", "jorvDeviceId", "macaddress", "firmwareVersion"})) {
        return problem;
    }
    for (const char* feature : {"CDIL", "NewDeviceNoti", "DeviceTagging", "BackgroudSpeedtest"}) {
        if (!member(member(body, "supportedFeatures"), feature).is_boolean()) {
            return std::string("supportedFeatures.") + feature + " is missing or not a boolean";
        }
    }
    return std::nullopt;
}

Problem checkAcknowledgement(const Json& body) {
    const bool list = body.contains("relayData");
    return first({[&] {
                      return missing(body, {"transactionId", "transactionStatus", "failureReason"});
                  },
                  [&] {
                      return oneOf(body, "transactionStatus", {"0", "1"});
                  },
                  [&] { return list ? missing(body, {"fetchFor"}) : Problem(); },
                  [&] { return list ? deviceList(member(member(body, "relayData"), "cdl"), true) : Problem(); }});
}

Problem tagNotification(const Json& cd) {
    return first({[&] {
                      return missing(cd, {"mac", "cdType", "cdName", "cdModel", "cdBrand", "cdNetwork"});
                  },
                  [&] {
                      return oneOf(cd, "cdStatus", {"0", "1"});
                  }});
}

Problem checkSync(const Json& body) {
    const std::string type = textOf(body, "type");
    if (type == "CDIL" || type == "UPDATE_CD") {
        return first(
            {[&] { return missing(body, {"syncAt"}); }, [&] { return deviceList(member(body, "cdl"), false); }});
    }
    const Json& cd = member(body, "cd");
    if (type == "NDN") {
        return device(cd, false);
    }
    return type == "DTN" ? tagNotification(cd) : "type is \"" + type + "\"";
}

Problem checkSpeedTest(const Json& body) {
    return first({[&] {
                      return oneOf(body, "type", {"B", "M"});
                  },
                  [&] {
                      return missing(member(body, "data"), {"isp", "ul", "dl", "serverId", "latency", "timestamp"});
                  }});
}

Problem checkCircle(const Json& body) {
    return missing(body, {"uuid", "circleUUID"});
}

Problem checkDeviceEvent(const Json& body) {
    const bool client = textOf(body, "feature") == "RCLIENT";
    return first({[&] {
                      return missing(body, {"modelNumber", "fwVersion", "jorvDeviceId"});
                  },
                  [&] {
                      return oneOf(body, "feature", {"SORB_agent_running", "SORB_provisioned", "RCLIENT"});
                  },
                  [&] {
                      return client ? oneOf(body, "state", {"CONNECTED", "DISCONNECTED"})
                                    : oneOf(body, "state", {"true", "false"});
                  }});
}

struct Endpoint {
    std::string_view path;
    const char* serialMember;
    Problem (*check)(const Json& body);
};

constexpr std::array kEndpoints{Endpoint{"/addJorvDeviceId/", "serialNo", checkRegistration},
                                Endpoint{"/transactionAck/", "serialNumber", checkAcknowledgement},
                                Endpoint{"/syncCD/", "serialNumber", checkSync},
                                Endpoint{"/pushStData/", "serialNumber", checkSpeedTest},
                                Endpoint{"/pc/circle/cuuid", "serialNumber", checkCircle},
                                Endpoint{"/deviceEvents", "serialNumber", checkDeviceEvent}};

const char* keyFor(std::string_view host) {
    for (const char* marker : provisioning::kNonProductionMarkers) {
        if (host.find(marker) != std::string_view::npos) {
            return provisioning::kNonProductionKey;
        }
    }
    return host.find(provisioning::kProductionMarker) != std::string_view::npos ? provisioning::kProductionKey
                                                                                : nullptr;
}

std::optional<Fault> checkSignature(const Json& body, const char* serialMember, const Expected& expected) {
    if (auto problem = missing(body, {serialMember, "ePOCHTimeStamp", "token"})) {
        return Fault{400, *problem};
    }
    const std::string serial = textOf(body, serialMember);
    if (serial != expected.serial) {
        return Fault{401, "unknown serial number \"" + serial + "\""};
    }
    const std::string stamp = textOf(body, "ePOCHTimeStamp");
    std::int64_t seconds = 0;
    const auto [end, error] = std::from_chars(stamp.data(), stamp.data() + stamp.size(), seconds);
    if (error != std::errc{} || end != stamp.data() + stamp.size()) {
        return Fault{400, "ePOCHTimeStamp is not a number of seconds"};
    }
    if (std::abs(seconds - expected.now) > kClockTolerance) {
        return Fault{401, "ePOCHTimeStamp is " + std::to_string(seconds - expected.now) + " s off"};
    }
    if (textOf(body, "token") != expectedToken(serial, stamp)) {
        return Fault{401, "the token does not match the serial number and time stamp"};
    }
    return std::nullopt;
}

std::optional<Fault> checkHeaders(const Received& received) {
    if (received.method != "POST") {
        return Fault{405, received.method + " instead of POST"};
    }
    if (received.contentType != "application/json") {
        return Fault{415, "Content-Type is \"" + received.contentType + "\""};
    }
    const char* key = keyFor(received.host);
    if (key == nullptr) {
        return Fault{421, "host \"" + received.host + "\" belongs to no environment"};
    }
    if (received.apiKey != key) {
        return Fault{401, "wrong API key for " + received.host};
    }
    return std::nullopt;
}

}  // namespace

std::string expectedToken(const std::string& serial, const std::string& stamp) {
    std::string input = serial + ":" + stamp + ":" + provisioning::kSecretHex;
    input.resize(std::min(input.size(), kTokenInputLongest));
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    EVP_Digest(input.data(), input.size(), digest.data(), &length, EVP_sha256(), nullptr);
    std::string token;
    for (unsigned int i = 0; i < length; ++i) {
        std::array<char, 3> pair{};
        std::snprintf(pair.data(), pair.size(), "%02x", static_cast<unsigned>(digest.at(i)));
        token += pair.data();
    }
    return token;
}

Checked checkRequest(const Received& received, const Expected& expected) {
    const auto endpoint = std::find_if(kEndpoints.begin(), kEndpoints.end(),
                                       [&](const Endpoint& known) { return known.path == received.path; });
    if (endpoint == kEndpoints.end()) {
        return {{}, Fault{404, "no such endpoint"}};
    }
    if (auto fault = checkHeaders(received)) {
        return {{}, fault};
    }
    Checked checked;
    checked.json = parseJson(received.body);
    if (!checked.json.is_object()) {
        checked.fault = Fault{400, "the body is not a JSON object"};
        return checked;
    }
    checked.fault = checkSignature(checked.json, endpoint->serialMember, expected);
    if (!checked.fault) {
        if (auto problem = endpoint->check(checked.json)) {
            checked.fault = Fault{400, *problem};
        }
    }
    return checked;
}

}  // namespace lab

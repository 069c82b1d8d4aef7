// Checks and copies the members, then calls the command's handler.
#include "dro_get_set_config_envelope.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <string_view>

#include "dro_circle.h"
#include "dro_fields.h"
#include "dro_get_set_config_ack.h"
#include "dro_get_set_config_checkpoint.h"
#include "dro_get_set_config_device.h"
#include "dro_get_set_config_list.h"
#include "dro_json.h"
#include "dro_log.h"

namespace dro {
namespace {

using NameText = FixedText<128>;

// How a missing member is reported. A member without a reason is optional and read as empty.
struct Missing {
    int level;
    const char* logText;
    const char* reason;
};

constexpr Missing kMacMissing{kNotice, "CD MAC is not present!\n", "Invalid Argument cdMac"};
constexpr Missing kStatusMissing{kNotice, "Status is not present!\n", "Invalid Argument Status"};
constexpr const char* kMacOverflow = "Overflow of cdMAC buffer\n";

class Envelope {
 public:
    Envelope(const char* uuid, const char* command, const cJSON* data) : data_(data) {
        uuid_.assign(uuid);
        command_.assign(command);
    }

    const char* uuid() const { return uuid_.c_str(); }
    const char* command() const { return command_.c_str(); }

    // The command's name, truncated for the handlers with a short buffer.
    FixedText<20> short_command() const { return FixedText<20>(command_.view()); }

    // Copies a text member. Returns false when the command is refused: the text is too long, or required and missing.
    template <std::size_t Capacity>
    bool text(const char* name, FixedText<Capacity>& out, const Missing& missing, const char* overflowText) const {
        const char* value = json_text(data_, name);
        if (value == nullptr) {
            return report_missing(missing);
        }
        if (std::strlen(value) >= Capacity) {
            LOG_ERROR("%s", overflowText);
            return false;
        }
        out.assign(value);
        return true;
    }

    // Returns a member of any type, or null after reporting it missing.
    const cJSON* item(const char* name, const Missing& missing) const {
        const cJSON* member = json_member(data_, name);
        if (member == nullptr) {
            report_missing(missing);
        }
        return member;
    }

    // A "fetchFor" that is too long is truncated, not rejected.
    FixedText<16> fetch_for() const {
        const char* value = json_text(data_, "fetchFor");
        if (value == nullptr) {
            LOG_ERROR("fetchFor is not present!\n");
            return {};
        }
        const FixedText<16> cut(value);
        if (std::strlen(value) >= FixedText<16>::capacity()) {
            LOG_ERROR("Overflow of UUID buffer\n");
        }
        LOG_TRACE("getting fetchFor\n");
        return cut;
    }

    // Returns the whole data object as unformatted text, or null when there is none.
    JsonText printed_data() const { return JsonText(data_ != nullptr ? cJSON_PrintUnformatted(data_) : nullptr); }

 private:
    bool report_missing(const Missing& missing) const {
        LOG_AT(missing.level, "%s", missing.logText);
        if (missing.reason == nullptr) {
            return true;
        }
        sendTransactionACK(uuid(), kAckFailure, missing.reason);
        return false;
    }

    NameText uuid_;
    NameText command_;
    const cJSON* data_;
};

// Each handler returns false when a member check ended the command.

bool update_dtn_schedule(const Envelope& envelope) {
    FixedText<20> timeZone;
    FixedText<20> startTime;
    FixedText<20> endTime;
    if (!envelope.text("timeZone", timeZone, {kNotice, "timeZone is not present!\n", "Invalid Argument timeZone"},
                       "Overflow of timeZone buffer\n") ||
        !envelope.text("startTime", startTime, {kNotice, "startTime is not present!\n", "Invalid Argument startTime"},
                       "Overflow of startTime buffer\n") ||
        !envelope.text("endTime", endTime, {kNotice, "endTime is not present!\n", "Invalid Argument endTime"},
                       "Overflow of endTime buffer\n")) {
        return false;
    }
    LOG_TRACE(
        "Got info for DTNSchedule time change\nData: UUID = %s, cmd = %s, timeZone = %s, startTime = %s, endTime = "
        "%s\n",
        envelope.uuid(), envelope.command(), timeZone.c_str(), startTime.c_str(), endTime.c_str());
    setDTNSchedule(envelope.uuid(), timeZone.c_str(), startTime.c_str(), endTime.c_str());
    return true;
}

bool tag_cd(const Envelope& envelope) {
    FixedText<20> cdMac;
    if (!envelope.text("cdMac", cdMac, kMacMissing, kMacOverflow)) {
        return false;
    }
    const cJSON* tagStatus =
        envelope.item("tagStatus", {kNotice, "tagStatus is not present!\n", "Invalid Argument tagStatus"});
    if (tagStatus == nullptr) {
        return false;
    }
    LOG_TRACE("Got info for %s, cdMAC is %s, tagState is %d\n", envelope.command(), cdMac.c_str(), tagStatus->valueint);
    setMAConDAL(envelope.uuid(), envelope.command(), cdMac.c_str(), tagStatus->valueint);
    return true;
}

bool speed_test_switch(const Envelope& envelope) {
    LOG_TRACE("In BST feature case match\n");
    LOG_TRACE("transaction for BST config %s\n", envelope.command());
    setBSTSchedule(envelope.uuid(), envelope.short_command().c_str());
    return true;
}

bool device_claimed(const Envelope& envelope) {
    setclaimState(envelope.uuid(), envelope.fetch_for().c_str());
    return true;
}

bool customize_cd(const Envelope& envelope) {
    LOG_TRACE("In Customize CD case match!\n");
    FixedText<20> cdMac;
    FixedText<128> name;
    FixedText<32> type;
    FixedText<32> brand;
    FixedText<32> model;
    // The three short members share the type's overflow text.
    constexpr const char* kOverflow = "Overflow of cdType buffer\n";
    if (!envelope.text("cdMac", cdMac, {kError, kMacMissing.logText, kMacMissing.reason}, kMacOverflow) ||
        !envelope.text("cdName", name, {kError, "CD Name is not present! Perhaps cdName is not customized!\n", nullptr},
                       "Overflow of cdName buffer\n") ||
        !envelope.text("cdType", type, {kError, "CD Type is not present! Perhaps cdType is not customized!\n", nullptr},
                       kOverflow) ||
        !envelope.text("cdBrand", brand,
                       {kError, "CD Brand is not present! Perhaps cdBrand is not customized!\n", nullptr}, kOverflow) ||
        !envelope.text("cdModel", model,
                       {kError, "CD Model is not present! Perhaps cdModel is not customized!\n", nullptr}, kOverflow)) {
        return false;
    }
    LOG_TRACE("Calling customizeCD Func call!\n");
    customizeCD(envelope.uuid(), cdMac.c_str(), name.c_str(), type.c_str(), brand.c_str(), model.c_str());
    return true;
}

// BLOCK_CD and UNBLOCK_CD, for one device and for a list.
struct Blocking {
    explicit Blocking(const Envelope& envelope) : block(std::string_view(envelope.command()).starts_with("BLOCK")) {
        LOG_TRACE("%s", block ? "In BLOCK_CD case match!\n" : "In UNBLOCK_CD case match!\n");
    }
    bool block;
    const char* mode() const { return block ? "block" : "unblock"; }
};

bool block_cd(const Envelope& envelope) {
    const Blocking blocking(envelope);
    FixedText<20> cdMac;
    if (!envelope.text("cdMac", cdMac, kMacMissing, kMacOverflow)) {
        return false;
    }
    block_unblock_device(envelope.uuid(), cdMac.c_str(), blocking.mode());
    return true;
}

bool block_cd_bulk(const Envelope& envelope) {
    const Blocking blocking(envelope);
    const int missingLevel = blocking.block ? kNotice : kTrace;
    const cJSON* elements = envelope.item("elements", {missingLevel, kMacMissing.logText, kMacMissing.reason});
    if (elements == nullptr) {
        return false;
    }
    block_unblock_device_bulk(envelope.uuid(), elements, blocking.mode());
    return true;
}

bool fetch_cd(const Envelope& envelope) {
    write_checkpoint(kFetchReceived);
    FixedText<16> now;
    now.format("%ld", static_cast<long>(std::time(nullptr)));
    LOG_TRACE("Timestamp = %s\n", now.c_str());
    write_ascii(fields::cdilTimestamp, now.c_str());
    LOG_TRACE("In FETCH_CD case match!\n");
    const auto fetchFor = envelope.fetch_for();
    const cJSON* status = envelope.item("status", kStatusMissing);
    if (status == nullptr) {
        return false;
    }
    init_fetch_cd(envelope.uuid(), static_cast<unsigned>(status->valueint), fetchFor.c_str());
    return true;
}

bool circle_act_or_deact(const Envelope& envelope) {
    LOG_TRACE("In CIRCLE Act/Deact case match!\n");
    LOG_TRACE("transaction for Circle Activation %s\n", envelope.command());
    const cJSON* overRide = envelope.item("overRide", kStatusMissing);
    if (overRide == nullptr) {
        return false;
    }
    circle_action(envelope.uuid(), envelope.short_command().c_str(), overRide->valueint != 0);
    return true;
}

bool provision_circle(const Envelope& envelope) {
    LOG_TRACE("In CIRCLE Provision case match!\n");
    circle_provision(envelope.uuid(), envelope.short_command().c_str(), envelope.printed_data());
    return true;
}

bool toggle_circle_state(const Envelope& envelope) {
    LOG_TRACE("Circle status toggle command received\n");
    toggle_circle(envelope.uuid(), envelope.printed_data());
    return true;
}

bool remove_cd(const Envelope& envelope) {
    LOG_TRACE("In Remove CD case match!\n");
    FixedText<20> cdMac;
    if (!envelope.text("cdMac", cdMac, kMacMissing, kMacOverflow)) {
        return false;
    }
    remove_cdmac_from_device(envelope.uuid(), cdMac.c_str());
    return true;
}

struct Command {
    const char* name;
    bool (*run)(const Envelope&);
};

constexpr std::array<Command, 16> kCommands{{
    {"UPDATE_DTN_SCHEDULE", update_dtn_schedule},
    {"TAG_CD", tag_cd},
    {"BST_ENABLE", speed_test_switch},
    {"BST_DISABLE", speed_test_switch},
    {"DEVICE_CLAIMED", device_claimed},
    {"CUSTOMIZE_CD", customize_cd},
    {"BLOCK_CD", block_cd},
    {"BLOCK_CD_BULK", block_cd_bulk},
    {"UNBLOCK_CD", block_cd},
    {"UNBLOCK_CD_BULK", block_cd_bulk},
    {"FETCH_CD", fetch_cd},
    {"ACTIVATE_CIRCLE", circle_act_or_deact},
    {"DEACTIVATE_CIRCLE", circle_act_or_deact},
    {"PROVISION_CIRCLE", provision_circle},
    {"TOGGLE_CIRCLE_STATE", toggle_circle_state},
    {"REMOVE_CD", remove_cd},
}};

int dispatch(const Envelope& envelope) {
    const auto* command = std::find_if(kCommands.begin(), kCommands.end(), [&](const Command& known) {
        return std::strcmp(known.name, envelope.command()) == 0;
    });
    if (command == kCommands.end()) {
        LOG_TRACE("Invalid Command for Operation\n");
        sendTransactionACK(envelope.uuid(), kAckFailure, "Invalid Command");
        return 0;
    }
    return command->run(envelope) ? 0 : -1;
}

// Returns the transaction id, or null when there is none that can be acknowledged.
const char* transaction_id(const cJSON* message) {
    const char* uuid = json_text(message, "UUID");
    if (uuid == nullptr) {
        LOG_NOTICE("UUID is not present!\n");
        return nullptr;
    }
    if (std::strlen(uuid) >= NameText::capacity()) {
        LOG_ERROR("Overflow of UUID buffer\n");
        return nullptr;
    }
    LOG_TRACE("getting transaction uuid\n");
    LOG_TRACE("Parse UUID is done, trans uuid is %s\n", uuid);
    return uuid;
}

// Returns the command's name, or null after logging the problem. A missing name is also acknowledged.
const char* command_name(const cJSON* message, const char* uuid) {
    const char* command = json_text(message, "cmd");
    if (command == nullptr) {
        LOG_NOTICE("CMD is not present!\n");
        sendTransactionACK(uuid, kAckFailure, "Invalid Argument CMD");
        return nullptr;
    }
    if (std::strlen(command) >= NameText::capacity()) {
        LOG_ERROR("Overflow of cmd buffer\n");
        return nullptr;
    }
    LOG_TRACE("getting cmd\n");
    LOG_TRACE("Parse cmd is done, cmd is %s\n", command);
    return command;
}

}  // namespace

int parseUUIDBaseBuffer(const char* message) {
    LOG_TRACE("Buffer is %s\n", message);
    const Json parsed(cJSON_Parse(message));
    if (!parsed) {
        return -1;
    }
    LOG_TRACE("Parse String is done\n");
    const char* uuid = transaction_id(parsed.get());
    if (uuid == nullptr) {
        return -1;
    }
    const char* command = command_name(parsed.get(), uuid);
    if (command == nullptr) {
        return -1;
    }
    const cJSON* data = json_member(parsed.get(), "data");
    LOG_TRACE("Data object get success\n");
    if (data == nullptr) {
        LOG_NOTICE("data object is not present!\n");
    } else {
        LOG_TRACE("getting data into buffer\n");
    }
    return dispatch(Envelope(uuid, command, data));
}

}  // namespace dro

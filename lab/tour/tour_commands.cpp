// The cloud's commands for devices, and how invalid ones are handled.
#include "store_fields.h"
#include "tour.h"

namespace lab {

namespace {

std::string macOfRow(Tour& tour, int row) {
    return macText(tour.lab().population.at(row).mac);
}

std::string dataFor(const std::string& mac, const std::string& more = {}) {
    return R"({"cdMac":")" + mac + "\"" + more + "}";
}

std::string elements(Tour& tour, const std::vector<int>& rows) {
    std::string list;
    for (const int row : rows) {
        list += (list.empty() ? "" : ",") + dataFor(macOfRow(tour, row));
    }
    return R"({"elements":[)" + list + "]}";
}

void orders(Tour& tour, const std::string& command, const std::string& data) {
    tour.acknowledged(command, data, "1", "Success");
}

void blocks(Tour& tour, const std::string& name, const std::string& mac) {
    const Store& store = tour.lab().store;
    tour.step("block " + name, [&] {
        orders(tour, "BLOCK_CD", dataFor(mac));
        tour.stored(field::Dilsignature::AllowOrBlock.at(0), "block");
    });
    tour.step("unblock it", [&] {
        orders(tour, "UNBLOCK_CD", dataFor(mac));
        tour.stored(field::Dilsignature::AllowOrBlock.at(0), "allow");
    });
    const std::vector<int> rows{1, 2, 5};
    tour.step("block three devices at once", [&] {
        orders(tour, "BLOCK_CD_BULK", elements(tour, rows));
        for (const int row : rows) {
            tour.stored(field::Dilsignature::AllowOrBlock.at(row), "block");
        }
        checkSame("a fourth device", store.get(field::Dilsignature::AllowOrBlock.at(3)), "allow");
    });
    tour.step("unblock all three at once", [&] {
        orders(tour, "UNBLOCK_CD_BULK", elements(tour, rows));
        for (const int row : rows) {
            tour.stored(field::Dilsignature::AllowOrBlock.at(row), "allow");
        }
    });
}

void describes(Tour& tour, const std::string& name, const std::string& mac) {
    for (const auto& [number, word] : {std::pair("2", "online"), {"3", "offline"}, {"0", "untag"}, {"1", "both"}}) {
        tour.step("tag " + name + ": " + word, [&, state = number, tag = word] {
            orders(tour, "TAG_CD", dataFor(mac, std::string(R"(,"tagStatus":)") + state));
            tour.stored(field::Dilsignature::IsTagged.at(0), tag);
        });
    }
    tour.step("customise it twice, the second time with fewer fields", [&] {
        orders(tour, "CUSTOMIZE_CD", dataFor(mac, R"(,"cdName":"Desk \"phone\"","cdType":"Toy","cdBrand":"Ours")"));
        tour.stored(field::DeviceIdList::DisplayNameCustom.at(0), "Desk \"phone\"");
        tour.stored(field::DeviceIdList::DeviceTypeCustom.at(0), "Toy");
        orders(tour, "CUSTOMIZE_CD", dataFor(mac, R"(,"cdName":"Desk phone")"));
        tour.stored(field::DeviceIdList::DisplayNameCustom.at(0), "Desk phone");
        tour.stored(field::DeviceIdList::DeviceTypeCustom.at(0), "");
    });
}

// Checks messages that must not be answered.
void ignores(Tour& tour, const std::string& mac) {
    Lab& lab = tour.lab();
    const std::size_t from = lab.record.mark();
    const std::string id = newTransaction();
    const std::vector<std::pair<const char*, std::string>> ignored{
        {"no JSON", R"({"UUID":")" + id + R"(","cmd":"BLOCK_CD")"},
        {"no transaction id", R"({"cmd":"BLOCK_CD","data":)" + dataFor(mac) + "}"},
        {"a transaction id of 128 characters", envelope(std::string(128, 'a'), "BLOCK_CD", dataFor(mac))},
        {"a MAC of 20 characters", envelope(id, "BLOCK_CD", dataFor(std::string(20, 'A')))},
        {"a message of 70,000 characters, which is truncated",
         envelope(id, "BLOCK_CD", dataFor(mac, R"(,"cdName":")" + std::string(70000, 'a') + "\""))}};
    for (const auto& [what, message] : ignored) {
        tour.step(std::string("ignored: ") + what + "; the next command works", [&, &text = message] {
            lab.connector.deliver(text, "an invalid message");
            tour.acknowledged("BLOCK_CD", dataFor(mac), "1", "Success");
            tour.acknowledged("UNBLOCK_CD", dataFor(mac), "1", "Success");
        });
    }
    tour.step("no ignored message was answered", [&] {
        checkSame("requests", std::to_string(lab.record.since(from).size()), std::to_string(2 * ignored.size()));
    });
}

}  // namespace

void tourCommands(Tour& tour) {
    Lab& lab = tour.lab();
    tour.settle(true);
    const std::string name = lab.population.at(0).name;
    const std::string mac = macOfRow(tour, 0);
    blocks(tour, name, mac);
    describes(tour, name, mac);
    const int last = lab.population.rows().back();
    tour.step("remove " + lab.population.at(last).name, [&] {
        orders(tour, "REMOVE_CD", dataFor(macOfRow(tour, last)));
        tour.stored(field::DeviceIdList::DeviceMac.at(last), "00:00:00:00:00:00");
    });
    tour.step("switch the background speed test on and off", [&] {
        orders(tour, "BST_ENABLE", "{}");
        tour.stored(field::DALHConfig::BSTStateuserDRO, "ENABLE");
        orders(tour, "BST_DISABLE", "{}");
        tour.stored(field::DALHConfig::BSTStateuserDRO, "DISABLE");
    });
    tour.step("set the tag-notification schedule",
              [&] { orders(tour, "UPDATE_DTN_SCHEDULE", findCommand("UPDATE_DTN_SCHEDULE")->example); });
}

void tourBadMessages(Tour& tour) {
    tour.settle(true);
    const std::string mac = macOfRow(tour, 1);
    struct Refused {
        const char* what;
        const char* command;
        std::string data;
        const char* reason;
    };
    const std::vector<Refused> refused{
        {"an unknown command", "DANCE", "{}", "Invalid Command"},
        {"a command in lower case", "block_cd", dataFor(mac), "Invalid Command"},
        {"a missing device", "BLOCK_CD", "{}", "Invalid Argument cdMac"},
        {"a device that is a number", "REMOVE_CD", R"({"cdMac":7})", "Invalid Argument cdMac"},
        {"no data at all", "TAG_CD", "", "Invalid Argument cdMac"},
        {"a missing tag state", "TAG_CD", dataFor(mac), "Invalid Argument tagStatus"},
        {"a tag state that does not exist", "TAG_CD", dataFor(mac, R"(,"tagStatus":4)"), "Invalid tagState"},
        {"a missing end time", "UPDATE_DTN_SCHEDULE", R"({"timeZone":"UTC","startTime":"08:00"})",
         "Invalid Argument endTime"},
        {"21 devices at once", "BLOCK_CD_BULK", elements(tour, std::vector<int>(21, 1)),
         "Mac Array elements greater than 20"}};
    for (const auto& each : refused) {
        tour.step(std::string("refused: ") + each.what,
                  [&] { tour.acknowledged(each.command, each.data, "0", each.reason); });
    }
    ignores(tour, mac);
}

}  // namespace lab

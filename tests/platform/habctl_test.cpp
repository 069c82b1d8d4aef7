// The store's command line, from a user's side: output, errors, exit status.
#include <gmock/gmock.h>
#include <signal.h>

#include <fstream>

#include "workbench.h"

namespace {

using testing::HasSubstr;

class Habctl : public StoreTest {
 protected:
    std::string file(const std::string& text) const {
        std::ofstream(folder_ + "/values.json") << text;
        return folder_ + "/values.json";
    }
};

TEST_F(Habctl, ReturnsTheStatusOfEachCommand) {
    constexpr const char* kAll =
        "General.DeviceName@0=two\\nlines\\\\\nJorvagentCfg.jorv_force_connection@0=-3\n"
        "DeviceIdList.DeviceMac@255=AA:BB:CC:DD:EE:FF\n";
    const Cases<std::vector<std::string>, int, const char*, const char*> cases{
        {{}, 64, "", "subcommand"},
        {{"get"}, 64, "", "required"},
        {{"get", "General"}, 64, "", "TABLE.FIELD"},
        {{"get", "General.FSN@x"}, 64, "", "row"},
        {{"init", "--force", "--upgrade"}, 64, "", "excludes"},
        {{"load", "/nowhere.json"}, 64, "", "exist"},
        {{"status", "--wait", "-1"}, 64, "", "--wait"},
        {{"--help"}, 0, "status", ""},
        {{"init"}, 8, "", "--force"},
        {{"init", "--upgrade"}, 0, "", ""},
        {{"get", "General.fsn"}, 3, "", "no such table, field or row"},
        {{"set", "DroCfg.claimState", "yes"}, 5, "", "DroCfg.claimState"},
        {{"set", "General.FSN", "1234567890123456"}, 4, "", "too long"},
        {{"set", "General.FSN", "\xC3\xBC"}, 7, "", "127"},
        {{"set", "General.DeviceName", "--force"}, 0, "", ""},
        {{"get", "General.DeviceName"}, 0, "--force\n", ""},
        {{"set", "JorvagentCfg.jorv_force_connection", "-3"}, 0, "", ""},
        {{"set", "DeviceIdList.DeviceMac@255", "aa:bb:cc:dd:ee:ff"}, 0, "", ""},
        {{"set", "General.DeviceName", "two\nlines\\"}, 0, "", ""},
        {{"dump"}, 0, kAll, ""},
        {{"dump", "DALHNotifyNDN"}, 0, "DALHNotifyNDN.Index@0=257\n", ""},
        {{"dump", "Nothing"}, 3, "", "Nothing"},
        {{"describe", "DALHNotifyCDUPDATE.IndexCd"}, 0, "DALHNotifyCDUPDATE.IndexCD (also IndexCd)\tuint\t257\t", ""},
        {{"describe", "General"}, 0, "General.FSN\tascii(15)\t\"\"\t", ""},
        {{"describe", "General.Nothing"}, 3, "", "General.Nothing"},
        {{"watch", "Nothing"}, 3, "", "Nothing"},
        {{"init", "--force"}, 0, "", ""}};
    for (const auto& [words, status, output, errors] : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        const Outcome outcome = habctl(words);
        EXPECT_EQ(outcome.status, status) << outcome.errors;
        EXPECT_THAT(outcome.output, HasSubstr(output));
        EXPECT_THAT(outcome.errors, HasSubstr(errors));
        EXPECT_EQ(outcome.errors.empty(), status == 0) << outcome.errors;
    }
    EXPECT_EQ(habctl({"dump"}).output, "");
}

TEST_F(Habctl, LoadsWhatItDumpsAllOrNothing) {
    const std::string values =
        "{\n\t\"General\": {\n\t\t\"DeviceName\": \"Küche \\\"1\\\"\",\n\t\t\"DefaultMAC\": "
        "\"00:1B:2C:3D:4E:5F\"\n\t},\n"
        "\t\"JorvagentCfg\": {\n\t\t\"jorv_force_connection\": -7\n\t},\n\t\"DroCfg\": {\n\t\t\"claimState\": "
        "true\n\t},\n"
        "\t\"DALHNotifyCDIL\": {\n\t\t\"IndexBitMask0\": 4294967295\n\t},\n"
        "\t\"Dilsignature\": {\n\t\t\"2\": {\n\t\t\t\"DeviceIP\": \"1.2.3.4\"\n\t\t}\n\t}\n}\n";
    ASSERT_EQ(habctl({"load", file(values)}).status, 0);
    EXPECT_EQ(habctl({"dump", "--json"}).output, values);
    const Cases<const char*, int> cases{
        {R"({"General": {"FSN": "1"}} trailing)", 5},
        {"{\"General\": {\"FSN\": \"1\", \"DeviceName\": \"K\xFC\"}}", 5},
        {R"(["General"])", 5},
        {R"({"General": {"FSN": "1"}, "General": {"DeviceName": "2"}})", 5},
        {R"({"General": {"FSN": "1", "FSN": "2"}})", 5},
        {R"({"General": {"FSN": "1"}, "Nothing": {}})", 3},
        {R"({"General": {"FSN": "1"}, "DroCfg": 5})", 5},
        {R"({"General": {"FSN": "1", "Nothing": "1"}})", 3},
        {R"({"General": {"FSN": "1", "1": {"FSN": "2"}}})", 3},
        {R"({"General": {"FSN": "1"}, "DroCfg": {"claimState": "true"}})", 6},
        {R"({"General": {"FSN": 1}})", 6},
        {R"({"General": {"FSN": "1"}, "DALHConfig": {"FeatureID": 1.5}})", 5},
        {R"({"General": {"FSN": "1"}, "DALHConfig": {"FeatureID": -1}})", 5},
        {R"({"General": {"FSN": "1"}, "DALHConfig": {"FeatureID": 1e999}})", 5},
        {R"({"General": {"FSN": "1"}, "DeviceIdList": {"256": {"DeviceBrand": "B"}}})", 3},
        {R"({"DroCfg": {"claimState": true}, "General": {"FSN": "1234567890123456"}})", 4}};
    for (const auto& [json, status] : cases) {
        const Outcome outcome = habctl({"load", file(json)});
        EXPECT_EQ(outcome.status, status) << json << outcome.errors;
        EXPECT_FALSE(outcome.errors.empty());
    }
    EXPECT_EQ(habctl({"dump", "--json"}).output, values);
    EXPECT_THAT(habctl({"load", file(R"({"General" 1})")}).errors, HasSubstr("not a JSON object, at byte 11"));
    EXPECT_THAT(habctl({"load", file("[]")}).errors, HasSubstr("not a JSON object, at byte 0"));
    // Bytes that are not UTF-8 are dumped as replacement characters.
    ASSERT_EQ(habctl({"set", "General.DeviceModel", "\xEF\xBF\xBD"}).status, 0);
    ASSERT_EQ(habctl({"set", "General.DeviceName", "K\xFC\xFC \xEF\xBF\xBD \xE2\x82"}).status, 0);
    const Outcome outcome = habctl({"dump", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "habctl: General.DeviceName@0: bytes that are not UTF-8 are replaced\n");
    EXPECT_THAT(outcome.output, HasSubstr("\"K\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD \xEF\xBF\xBD\""));
}

TEST_F(Habctl, WatchesUntilItIsInterrupted) {
    Child watch({HABCTL, "watch", "DALHNotifyCDUPDATE.IndexCd", "General"});
    const Session session = open();
    std::string line;
    while (line.empty()) {  // until it has subscribed
        hab_set_ascii(session.get(), "General", 0, "FSN", "1");
        line = watch.line(20);
    }
    EXPECT_EQ(line, "General.FSN@0=1");
    hab_set_uint(session.get(), "DALHNotifyNDN", 0, "Index", 1);
    hab_set_string(session.get(), "General", 0, "DeviceName", "a\nb");
    hab_set_uint(session.get(), "DALHNotifyCDUPDATE", 0, "IndexCD", 4);
    while (line == "General.FSN@0=1") {
        line = watch.line();
    }
    EXPECT_EQ(line, "General.DeviceName@0=a\\nb");
    EXPECT_EQ(watch.line(), "DALHNotifyCDUPDATE.IndexCD@0=4");
    EXPECT_EQ(watch.end(SIGINT), 0);
}

}  // namespace

// Typed values through the client interface: types, limits, statuses, defaults, threads.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <fstream>
#include <latch>
#include <thread>

#include "commit_mark.h"
#include "workbench.h"

namespace {

using Values = SessionTest;

TEST_F(Values, AreReadAsTheyWereWritten) {
    const auto expect_value = [this](auto set, auto get, const char* table, const char* field, auto value) {
        decltype(value) read{};
        EXPECT_EQ(set(s_, table, 0, field, value), HAB_OK) << field;
        EXPECT_EQ(get(s_, table, 0, field, &read), HAB_OK) << field;
        EXPECT_EQ(read, value) << field;
    };
    expect_value(hab_set_bool, hab_get_bool, "DroCfg", "claimState", true);
    expect_value(hab_set_int, hab_get_int, "JorvagentCfg", "jorv_force_connection", INT32_MIN);
    expect_value(hab_set_uint, hab_get_uint, "DALHNotifyCDIL", "IndexBitMask7", UINT32_MAX);
    const auto expect_text = [this](auto set, auto get, const char* table, const char* field, const char* value) {
        std::array<char, 128> read{};
        EXPECT_EQ(set(s_, table, 0, field, value), HAB_OK) << field;
        EXPECT_EQ(get(s_, table, 0, field, read.data(), read.size()), HAB_OK) << field;
        EXPECT_STREQ(read.data(), value);
    };
    expect_text(hab_set_ascii, hab_get_ascii, "Drocfg", "DroBaseURL", "https://qa/");
    expect_text(hab_set_string, hab_get_string, "General", "DeviceName", "\xC3\xBC \xFF");
    expect_text(hab_set_enum, hab_get_enum, "DALHNotifyCDIL", "CDILstatus", "complete");
    const std::array<std::uint8_t, 6> mac{0x00, 0x1B, 0xFF, 0x80, 0x0A, 0x01};
    std::array<std::uint8_t, 6> macRead{};
    EXPECT_EQ(hab_set_mac(s_, "DeviceIdList", 255, "DeviceMac", mac.data()), HAB_OK);
    EXPECT_EQ(hab_get_mac(s_, "DeviceIdList", 255, "DeviceMac", macRead.data()), HAB_OK);
    EXPECT_EQ(macRead, mac);
    std::array<std::uint8_t, 4> address{};
    EXPECT_EQ(hab_host_set_text(s_, "Dilsignature", 0, "DeviceIP", "192.168.1.255"), HAB_OK);
    EXPECT_EQ(hab_get_ipv4(s_, "Dilsignature", 0, "DeviceIP", address.data()), HAB_OK);
    EXPECT_EQ(address, (std::array<std::uint8_t, 4>{192, 168, 1, 255}));
}

TEST(SortedSet, FindsAndRemovesWhatWasAdded) {
    std::array<int, 3> numbers{2, 1, 3};
    const int other = 4;
    sortedSet* set = sortedSet_init(1, [](const void* left, const void* right) {
        return *static_cast<const int*>(left) - *static_cast<const int*>(right);
    });
    for (int& number : numbers) {
        EXPECT_EQ(sortedSet_add(set, &number), 0);
        EXPECT_EQ(sortedSet_add(set, &number), 1);
        EXPECT_EQ(sortedSet_find(set, &number), &number);
    }
    EXPECT_EQ(sortedSet_find(set, &other), nullptr);
    EXPECT_EQ(sortedSet_rem(set, &other), 1);
    for (const int least : {1, 2, 3}) {
        EXPECT_EQ(sortedSet_len(set), static_cast<std::size_t>(4 - least));
        EXPECT_EQ(*static_cast<int*>(sortedSet_first(set)), least);
        EXPECT_EQ(sortedSet_rem(set, &least), 0);
    }
    EXPECT_EQ(sortedSet_first(set), nullptr);
    sortedSet_destroy(set);
}

TEST_F(Values, AreTheirDefaultsUntilTheyAreWrittenUnderTheirExactName) {
    EXPECT_EQ(textAt(s_, "droFeature", 0, "CDIL"), "true");
    EXPECT_EQ(textAt(s_, "Dilsignature", 255, "Devicestate"), "DOWN");
    EXPECT_EQ(textAt(s_, "General", 0, "DefaultMAC"), "00:00:00:00:00:00");
    EXPECT_EQ(hab_set_bool(s_, "DROStatus", 0, "addJorvdeviceIdDone", true), HAB_OK);
    EXPECT_EQ(textAt(s_, "DROStatus", 0, "AddJorvdeviceIdDone"), "false");
    EXPECT_EQ(hab_set_ascii(s_, "Drocfg", 0, "DroBaseURL", "x"), HAB_OK);
    const Cases<const char*, int, const char*> cases{
        {"DroCfg", 0, "DroBaseURL"}, {"drocfg", 0, "DroBaseURL"},  {"Drocfg", 0, "drobaseurl"},       {"Drocfg", 0, ""},
        {"Drocfg", 1, "DroBaseURL"}, {"Drocfg", -1, "DroBaseURL"}, {"DeviceIdList", 256, "DeviceMac"}};
    for (const auto& [table, row, field] : cases) {
        EXPECT_EQ(textAt(s_, table, row, field), "[3]") << table << row << field;
    }
    EXPECT_EQ(hab_set_uint(s_, "DALHNotifyCDUPDATE", 0, "IndexCd", 12), HAB_OK);
    EXPECT_EQ(textAt(s_, "DALHNotifyCDUPDATE", 0, "IndexCD"), "12");
}

TEST_F(Values, AreRefusedWithTheRightStatus) {
    const std::string longest(4095, 'a');
    const Cases<int, int> cases{
        {HAB_OK, hab_set_ascii(s_, "CircleCfg", 0, "accessToken", longest.c_str())},
        {HAB_TOO_LONG, hab_set_ascii(s_, "CircleCfg", 0, "accessToken", (longest + "a").c_str())},
        {HAB_TOO_LONG, hab_set_string(s_, "General", 0, "DeviceName", longest.c_str())},
        {HAB_ENCODING, hab_set_ascii(s_, "General", 0, "FSN", "S\x80")},
        {HAB_ENCODING, hab_set_enum(s_, "DALHConfig", 0, "TagStatus", "\xC3\xBC")},
        {HAB_OK, hab_set_enum(s_, "DALHConfig", 0, "TagStatus", "any word\x7F\x01")},
        {HAB_WRONG_TYPE, hab_set_string(s_, "General", 0, "FSN", "S")},
        {HAB_WRONG_TYPE, hab_set_int(s_, "DALHConfig", 0, "FeatureID", 1)},
        {HAB_WRONG_TYPE, hab_set_bool(s_, "RADebugLog", 0, "raCdilTimeout", true)},
        {HAB_NOSUCH_ITEM, hab_set_int(s_, "DALHConfig", 1, "FeatureID", 1)},
        {HAB_INVALID, hab_set_uint(nullptr, "DALHConfig", 0, "FeatureID", 1)},
        {HAB_INVALID, hab_set_uint(s_, nullptr, 0, "FeatureID", 1)},
        {HAB_INVALID, hab_set_uint(s_, "DALHConfig", 0, nullptr, 1)},
        {HAB_INVALID, hab_set_ascii(s_, "General", 0, "FSN", nullptr)},
        {HAB_INVALID, hab_set_mac(s_, "General", 0, "DefaultMAC", nullptr)},
        {HAB_INVALID, hab_get_bool(s_, "DroCfg", 0, "claimState", nullptr)},
        {HAB_INVALID, hab_get_ascii(s_, "General", 0, "FSN", nullptr, 16)},
        {HAB_INVALID, hab_subscribe(s_, "General", 0)},
        {HAB_INVALID, hab_subscribe_cb(s_, nullptr, nullptr)},
        {HAB_NOSUCH_ITEM, hab_subscribe(s_, "general", 1)}};
    for (const auto& one : cases) {
        EXPECT_EQ(std::get<1>(one), std::get<0>(one)) << "case " << &one - cases.data();
    }
    EXPECT_STREQ(hab_error_string(HAB_OK), "done");
    EXPECT_EQ(textAt(s_, "CircleCfg", 0, "accessToken"), longest);  // a refused write keeps the old value
    EXPECT_EQ(textAt(s_, "General", 0, "FSN"), "");
}

TEST_F(Values, LeaveAnEmptyTextWhenTheyCannotBeRead) {
    ASSERT_EQ(hab_set_ascii(s_, "General", 0, "FSN", "123456789012345"), HAB_OK);
    const auto reading = [](hab_session* from, const char* table, const char* field, std::size_t length) {
        std::array<char, 16> text{"before"};
        const int status = hab_get_ascii(from, table, 0, field, text.data(), length);
        return std::to_string(status) + text.data();
    };
    EXPECT_EQ(reading(s_, "General", "FSN", 16), "0123456789012345");
    EXPECT_EQ(reading(s_, "General", "FSN", 15), "4");
    EXPECT_EQ(reading(s_, "General", "FSN", 0), "5before");
    EXPECT_EQ(reading(s_, "General", "DeviceName", 16), "6");
    EXPECT_EQ(reading(s_, "General", "Nothing", 16), "3");
    EXPECT_EQ(reading(nullptr, "General", "FSN", 16), "5");
    hab_session* closed = hab_init();
    hab_destroy(closed);
    EXPECT_EQ(reading(closed, "General", "FSN", 16), "2");
    hab_destroy(closed);
    hab_destroy(nullptr);
}

TEST_F(Values, AreReadFromTextStrictly) {
    const std::vector<const char*> badMacs{"0A:1B:2C:3D:4E",    "0A:1B:2C:3D:4E:F",   "0A-1B-2C-3D-4E-FF",
                                           "0A:1B:2C:3D:4E:FG", "0A:1B:2C:3D:4E:FF:", "-1:1B:2C:3D:4E:FF"};
    const Cases<const char*, const char*, const char*, std::vector<const char*>> cases{
        {"DroCfg", "claimState", "true", {"TRUE", "1", "", "true "}},
        {"DALHConfig", "FeatureID", "4294967295", {"4294967296", "-1", "-0", "+1", " 1", "1 ", "0x1", ""}},
        {"JorvagentCfg", "jorv_force_connection", "-2147483648", {"-2147483649", "2147483648", "--1", "-", "1.0"}},
        {"Dilsignature",
         "DeviceIP",
         "10.0.0.255",
         {"10.0.0.256", "10.0.0", "10.0.0.1.", "1.2.3.-4", "10..0.1", "a.b.c"}},
        {"General", "DefaultMAC", "0A:1B:2C:3D:4E:FF", badMacs}};
    for (const auto& [table, field, good, allBad] : cases) {
        EXPECT_EQ(hab_host_set_text(s_, table, 0, field, good), HAB_OK) << good;
        for (const char* bad : allBad) {
            EXPECT_EQ(hab_host_set_text(s_, table, 0, field, bad), HAB_INVALID) << bad;
        }
        EXPECT_EQ(textAt(s_, table, 0, field), good);
    }
    std::array<std::uint8_t, 6> mac{};
    EXPECT_EQ(hab_string2mac("0a:1B:2c:3D:4e:fF", mac.data()), HAB_OK);
    EXPECT_EQ(mac, (std::array<std::uint8_t, 6>{0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0xFF}));
    EXPECT_EQ(hab_string2mac("00:00:00:00:00:0g", mac.data()), HAB_INVALID);
    EXPECT_EQ(mac[0], 0x0A);
}

TEST_F(Values, AreThoseOfTheLastCommitByAnySession) {
    const Session other = open();
    const auto name = [this](int row) { return textAt(s_, "DeviceIdList", row, "DeviceDisplayName"); };
    const std::string update = "UPDATE hab_value SET value = 'foreign' WHERE row = 7";
    const Cases<std::function<void()>, const char*> commits{
        {[&] { hab_set_string(s_, "DeviceIdList", 7, "DeviceDisplayName", "own"); }, "own"},
        {[&] { hab_set_string(other.get(), "DeviceIdList", 7, "DeviceDisplayName", "other"); }, "other"},
        {[&] { sql(update); }, "foreign"},
        {[&] {
             return habctl({"set", "DeviceIdList.DeviceDisplayName@7", "another"});
         },
         "another"},
        {[&] { sql("PRAGMA wal_checkpoint(TRUNCATE)"); }, "another"},
        {[&] { sql(update + "; PRAGMA wal_checkpoint(TRUNCATE)"); }, "foreign"}};
    for (const auto& [commit, value] : commits) {
        EXPECT_EQ(name(8), "");
        name(7);
        commit();
        EXPECT_EQ(name(7), value);
    }
}

// Another process writes to two tables and publishes what it has committed. Each later read sees that or a newer value.
TEST_F(Values, AreNeverOlderThanAnAcknowledgedWrite) {
    const std::string shared = folder_ + "/committed";
    std::ofstream(shared) << std::string(2 * sizeof(std::uint32_t), '\0');
    const int file = ::open(shared.c_str(), O_RDWR | O_CLOEXEC);
    void* const memory = mmap(nullptr, 2 * sizeof(std::uint32_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    auto* const committed = static_cast<std::atomic<std::uint32_t>*>(memory);
    const Child writer({STORE_CLIENT, "1", shared});
    constexpr std::array kPlaces{std::array{"DALHConfig", "ProcessID"}, std::array{"BSTResults", "Latency"}};
    int stale = 0;
    for (std::size_t i = 0; i < 1'000'000; ++i) {
        const auto& [table, field] = kPlaces[i % 2];
        const std::uint32_t least = committed[i % 2];
        std::uint32_t value = 0;
        stale += hab_get_uint(s_, table, 0, field, &value) != HAB_OK || value < least ? 1 : 0;
    }
    EXPECT_EQ(stale, 0);
    EXPECT_GT(committed[1], 1000U);
    munmap(memory, 2 * sizeof(std::uint32_t));
    close(file);
}

TEST(CommitMark, IsTakenFromAHeaderOfTheKnownVersionOnly) {
    std::array<std::uint32_t, 12> header{3'007'000, 0, 17};
    ASSERT_TRUE(hab::commitMarkIn(header.data()));
    EXPECT_EQ(hab::commitMarkIn(header.data())->at(2), 17U);
    header[0] = 3'008'000;
    EXPECT_FALSE(hab::commitMarkIn(header.data()));
}

TEST_F(Values, AreServedToManyThreadsOnOneHandle) {
    std::atomic<int> failures = 0;
    const auto onEightThreads = [](const std::function<void(int)>& work) {
        std::vector<std::jthread> threads;
        for (int number = 0; number < 8; ++number) {
            threads.emplace_back(work, number);
        }
        return threads;
    };
    onEightThreads([&](int row) {
        for (int i = 0; i < 100; ++i) {
            const std::string text = std::to_string(row) + "-" + std::to_string(i);
            std::array<char, 32> read{};
            failures += hab_set_ascii(s_, "DeviceIdList", row, "DeviceBrand", text.c_str()) != HAB_OK;
            failures += hab_get_ascii(s_, "DeviceIdList", row, "DeviceBrand", read.data(), 32) != HAB_OK;
            failures += read.data() != text;
            failures += open() == nullptr;
        }
    });
    EXPECT_EQ(failures, 0);

    // A handle that is closed while in use only returns errors.
    hab_session* shared = hab_init();
    std::latch reading(8);
    auto users = onEightThreads([&](int) {
        bool claimed = false;
        const auto read = [&] { return hab_get_bool(shared, "DroCfg", 0, "claimState", &claimed); };
        int status = read();
        for (reading.count_down(); status == HAB_OK; status = read()) {
        }
        failures += status != HAB_SHUTDOWN;
    });
    reading.wait();
    hab_destroy(shared);
    users.clear();
    EXPECT_EQ(failures, 0);
}

}  // namespace

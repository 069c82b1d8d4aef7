/* A client in plain C.
 *   store_client             uses every kind of call once; exit status 0 when all did what they promise
 *   store_client write FROM  writes FROM, FROM + 1, ... to DALHConfig.ProcessID for ever, saying each on standard
 * output once it is committed */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "habhost.h"

#define EXPECT(condition)                                           \
    do {                                                            \
        if (!(condition)) {                                         \
            fprintf(stderr, "line %d: %s\n", __LINE__, #condition); \
            failures++;                                             \
        }                                                           \
    } while (0)

static int failures;

static void values(hab_session* session) {
    static const uint8_t mac[6] = {0x00, 0x1B, 0xFF, 0x80, 0x0A, 0x01};
    char text[128] = "before";
    uint8_t macRead[6] = {0};
    uint8_t address[4] = {0};
    bool flag = false;
    int32_t number = 0;
    uint32_t natural = 0;
    EXPECT(hab_set_ascii(session, "Drocfg", 0, "DroBaseURL", "https://qa/") == HAB_OK);
    EXPECT(hab_get_ascii(session, "Drocfg", 0, "DroBaseURL", text, sizeof text) == HAB_OK &&
           !strcmp(text, "https://qa/"));
    EXPECT(hab_set_string(session, "General", 0, "DeviceName", "\xC3\xBC \xFF") == HAB_OK);
    EXPECT(hab_get_string(session, "General", 0, "DeviceName", text, sizeof text) == HAB_OK &&
           !strcmp(text, "\xC3\xBC \xFF"));
    EXPECT(hab_set_enum(session, "DALHNotifyCDIL", 0, "CDILstatus", "complete") == HAB_OK);
    EXPECT(hab_get_enum(session, "DALHNotifyCDIL", 0, "CDILstatus", text, sizeof text) == HAB_OK &&
           !strcmp(text, "complete"));
    EXPECT(hab_set_bool(session, "DroCfg", 0, "claimState", true) == HAB_OK);
    EXPECT(hab_get_bool(session, "DroCfg", 0, "claimState", &flag) == HAB_OK && flag);
    EXPECT(hab_set_int(session, "JorvagentCfg", 0, "jorv_force_connection", INT32_MIN) == HAB_OK);
    EXPECT(hab_get_int(session, "JorvagentCfg", 0, "jorv_force_connection", &number) == HAB_OK && number == INT32_MIN);
    EXPECT(hab_set_uint(session, "DALHNotifyCDIL", 0, "IndexBitMask7", UINT32_MAX) == HAB_OK);
    EXPECT(hab_get_uint(session, "DALHNotifyCDIL", 0, "IndexBitMask7", &natural) == HAB_OK && natural == UINT32_MAX);
    EXPECT(hab_set_mac(session, "DeviceIdList", 255, "DeviceMac", mac) == HAB_OK);
    EXPECT(hab_get_mac(session, "DeviceIdList", 255, "DeviceMac", macRead) == HAB_OK && !memcmp(mac, macRead, 6));
    EXPECT(hab_host_set_text(session, "Dilsignature", 0, "DeviceIP", "192.168.1.255") == HAB_OK);
    EXPECT(hab_get_ipv4(session, "Dilsignature", 0, "DeviceIP", address) == HAB_OK);
    EXPECT(address[0] == 192 && address[1] == 168 && address[2] == 1 && address[3] == 255);
}

static int byText(const void* left, const void* right) {
    return strcmp(left, right);
}

static void sortedSets(void) {
    char texts[3][8] = {"pear", "apple", "plum"};
    sortedSet* set = sortedSet_init(1, byText);
    for (int i = 0; i < 3; ++i) {
        EXPECT(sortedSet_add(set, texts[i]) == 0);
    }
    EXPECT(sortedSet_add(set, texts[0]) == 1 && sortedSet_len(set) == 3);
    EXPECT(sortedSet_find(set, "plum") == texts[2] && sortedSet_find(set, "fig") == NULL);
    EXPECT(sortedSet_rem(set, "fig") == 1);
    for (size_t left = 3; left > 0; --left) {
        EXPECT(sortedSet_len(set) == left && sortedSet_rem(set, sortedSet_first(set)) == 0);
    }
    EXPECT(sortedSet_first(set) == NULL);
    sortedSet_destroy(set);
}

static int writeOn(hab_session* session, uint32_t from) {
    for (uint32_t value = from;; ++value) {
        const int status = hab_set_uint(session, "DALHConfig", 0, "ProcessID", value);
        char line[16];
        const int length = snprintf(line, sizeof line, "%u\n", (unsigned)value);
        if (status != HAB_OK || write(STDOUT_FILENO, line, (size_t)length) != length) {
            return status;
        }
    }
}

int main(int argc, char** argv) {
    hab_session* session = hab_init();
    if (session == NULL) {
        return HAB_ERROR;
    }
    if (argc == 3 && strcmp(argv[1], "write") == 0) {
        return writeOn(session, (uint32_t)strtoul(argv[2], NULL, 10));
    }
    values(session);
    sortedSets();
    hab_destroy(session);
    EXPECT(hab_set_bool(session, "DroCfg", 0, "claimState", true) == HAB_SHUTDOWN);
    return failures == 0 ? 0 : 1;
}

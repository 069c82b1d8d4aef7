/* A router platform that refuses every call: all store and log functions that the agent needs, by name only. */
#define SAYS(answer, name) \
    long name(void) {      \
        return answer;     \
    }
#define FIVE_SAY(answer, a, b, c, d, e) SAYS(answer, a) SAYS(answer, b) SAYS(answer, c) SAYS(answer, d) SAYS(answer, e)

enum { kNull = 0, kStoreFailed = 8 };

FIVE_SAY(kNull, hab_init, hab_destroy, sortedSet_init, sortedSet_find, sortedSet_first)
FIVE_SAY(kNull, sortedSet_destroy, dynlog_lib_init, dynlog_lib_uninit, set_log_level, log_printf)
FIVE_SAY(kStoreFailed, hab_get_ascii, hab_get_bool, hab_get_enum, hab_get_int, hab_get_ipv4)
FIVE_SAY(kStoreFailed, hab_get_mac, hab_get_string, hab_get_uint, hab_set_ascii, hab_set_bool)
FIVE_SAY(kStoreFailed, hab_set_enum, hab_set_int, hab_set_mac, hab_set_string, hab_set_uint)
FIVE_SAY(kStoreFailed, hab_string2mac, hab_subscribe, hab_subscribe_cb, sortedSet_add, sortedSet_rem)
SAYS((long)"stub", hab_error_string)

/* A router platform that says no: every function that the agent asks of the store and log libraries, by name only. */
#define SAYS(answer, name) \
    long name(void) {      \
        return answer;     \
    }

enum { kNull = 0, kStoreFailed = 8 };

SAYS(kNull, hab_init)
SAYS(kNull, hab_destroy)
SAYS(kNull, sortedSet_init)
SAYS(kNull, sortedSet_find)
SAYS(kNull, sortedSet_first)
SAYS(kNull, sortedSet_destroy)
SAYS(kNull, dynlog_lib_init)
SAYS(kNull, dynlog_lib_uninit)
SAYS(kNull, set_log_level)
SAYS(kNull, log_printf)
SAYS((long)"stub", hab_error_string)
SAYS(kStoreFailed, hab_get_ascii)
SAYS(kStoreFailed, hab_get_bool)
SAYS(kStoreFailed, hab_get_enum)
SAYS(kStoreFailed, hab_get_int)
SAYS(kStoreFailed, hab_get_ipv4)
SAYS(kStoreFailed, hab_get_mac)
SAYS(kStoreFailed, hab_get_string)
SAYS(kStoreFailed, hab_get_uint)
SAYS(kStoreFailed, hab_set_ascii)
SAYS(kStoreFailed, hab_set_bool)
SAYS(kStoreFailed, hab_set_enum)
SAYS(kStoreFailed, hab_set_int)
SAYS(kStoreFailed, hab_set_mac)
SAYS(kStoreFailed, hab_set_string)
SAYS(kStoreFailed, hab_set_uint)
SAYS(kStoreFailed, hab_string2mac)
SAYS(kStoreFailed, hab_subscribe)
SAYS(kStoreFailed, hab_subscribe_cb)
SAYS(kStoreFailed, sortedSet_add)
SAYS(kStoreFailed, sortedSet_rem)

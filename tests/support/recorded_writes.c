// A preloaded library: appends "TABLE.FIELD" to the file that DRO_TEST_WRITES names for each store write of the agent.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct hab_session hab_session;

static void record(const char* table, const char* field) {
    const char* path = getenv("DRO_TEST_WRITES");
    if (path == NULL || strncmp(program_invocation_short_name, "droagent", 8) != 0) {
        return;
    }
    FILE* file = fopen(path, "ae");
    if (file != NULL) {
        fprintf(file, "%s.%s\n", table, field);
        fclose(file);
    }
}

#define RECORD(function, type)                                                                        \
    int function(hab_session* session, const char* table, int row, const char* field, type value) {   \
        int (*next)(hab_session*, const char*, int, const char*, type) = dlsym(RTLD_NEXT, #function); \
        record(table, field);                                                                         \
        return next(session, table, row, field, value);                                               \
    }
RECORD(hab_set_ascii, const char*)
RECORD(hab_set_string, const char*)
RECORD(hab_set_enum, const char*)
RECORD(hab_set_bool, bool)
RECORD(hab_set_int, int32_t)
RECORD(hab_set_uint, uint32_t)
RECORD(hab_set_mac, const uint8_t*)

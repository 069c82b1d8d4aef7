/* habhost.h - host extensions to hablib.h: create store files, describe fields, and read and write values of any type
 * as text. For tools and tests on a PC. A router's library does not have these functions, so the agent does not use
 * them.
 *
 * The conventions of hablib.h apply. Values as text: true or false; decimal numbers; a.b.c.d; AA:BB:CC:DD:EE:FF (either
 * case when written); the text itself for ascii, string and enum. A text that does not match the field's type returns
 * HAB_INVALID. Visitors run on the calling thread and may use the session. */
#ifndef HABHOST_H
#define HABHOST_H

#include "hablib.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Buffer size for any value as text, including the NUL. */
#define HAB_HOST_TEXT_SIZE 4096

/* Reads the path that hab_init opens: the value of HAB_STORE, or /var/lib/hab/hab.db. Fails as hab_get_string does. */
int hab_host_store_path(char* buffer, size_t length);

/* Creates a store at `path` (mode 0600) with every value at its default. Creates the last folder of the path when it is
 * missing. An existing file is an error unless `replace` is set: the file and its values are then removed, and sessions
 * that have it open fail from then on. Prints the cause of a failure on standard error. */
int hab_host_create(const char* path, bool replace);

/* Upgrades the store at `path` to this library's schema, also while it is in use. Keeps all values except those whose
 * field no longer exists or no longer accepts them. Prints the number of dropped values, and the cause of a failure, on
 * standard error. */
int hab_host_upgrade(const char* path);

/* Returns a number that identifies the schema's version. */
uint32_t hab_host_schema_id(void);

typedef struct hab_host_field {
    const char* table;
    int rows; /* count; rows are numbered from 0 */
    const char* table_about;
    const char* name;
    const char* alias;   /* second spelling, or "" */
    const char* type;    /* ascii, string, enum, bool, int, uint, ipv4, mac */
    size_t longest;      /* bytes of text without the NUL; 0 for other types */
    const char* initial; /* the default, as text */
    const char* about;
} hab_host_field;

/* Visits every field in schema order. The description and its texts are valid during the visit. */
int hab_host_describe(hab_session* session, void (*visit)(const hab_host_field* field, void* context), void* context);

int hab_host_get_text(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length);
int hab_host_set_text(hab_session* session, const char* table, int row, const char* field, const char* text);

typedef struct hab_host_value {
    const char* table;
    int row;
    const char* field;
    const char* text;
} hab_host_value;

/* Writes all values in their order, or none. On failure, `failed` (may be null) receives the index of the rejected
 * value, or `count` when no single value caused the failure. */
int hab_host_set_all(hab_session* session, const hab_host_value* values, size_t count, size_t* failed);

/* Visits every value that differs from its default, in one snapshot, by table, row and field in schema order. */
int hab_host_each_value(hab_session* session, void (*visit)(const hab_host_value* value, void* context), void* context);

/* Returns HAB_OK, or HAB_ERROR when the path no longer leads to the session's store file. */
int hab_host_check(hab_session* session);

#ifdef __cplusplus
}
#endif
#endif

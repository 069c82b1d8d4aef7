/* habhost.h - what the host's store can do beyond hablib.h: make store files, describe fields, and move values of any
 * type as text. For tools and tests on a PC; a router's library does not have it, so the agent does not use it.
 *
 * The conventions of hablib.h hold. Texts of values: true or false; decimal numbers; a.b.c.d; AA:BB:CC:DD:EE:FF (either
 * case when written); the text itself for ascii, string and enum. A text that is not of the field's type is
 * HAB_INVALID. Visitors run on the calling thread and may use the session. */
#ifndef HABHOST_H
#define HABHOST_H

#include "hablib.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes that hold any value as text, with the NUL. */
#define HAB_HOST_TEXT_SIZE 4096

/* The store file that hab_init opens: what HAB_STORE names, or /var/lib/hab/hab.db. Copied like a read of text. */
int hab_host_store_path(char* buffer, size_t length);

/* Makes a store at `path` (mode 0600) with every value at its default, and the folder it is in when only that is
 * missing. A file that is there already is an error, unless `replace` is set: it is then given up with all its values,
 * and sessions that have it open fail from then on. Says what is wrong on standard error. */
int hab_host_create(const char* path, bool replace);

/* Brings the store at `path` to this library's schema, also while it is in use. Values are kept; those whose field is
 * gone or does not admit them any more are dropped, and their number said on standard error, as is what is wrong. */
int hab_host_upgrade(const char* path);

/* A number that differs between versions of the schema. */
uint32_t hab_host_schema_id(void);

typedef struct hab_host_field {
    const char* table;
    int rows; /* rows count from 0 */
    const char* table_about;
    const char* name;
    const char* alias;   /* a second spelling, or "" */
    const char* type;    /* ascii, string, enum, bool, int, uint, ipv4, mac */
    size_t longest;      /* bytes of text without the NUL; 0 for other types */
    const char* initial; /* the default, as text */
    const char* about;
} hab_host_field;

/* Visits every field in the schema's order. What it points at is valid during the visit. */
int hab_host_describe(hab_session* session, void (*visit)(const hab_host_field* field, void* context), void* context);

int hab_host_get_text(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length);
int hab_host_set_text(hab_session* session, const char* table, int row, const char* field, const char* text);

typedef struct hab_host_value {
    const char* table;
    int row;
    const char* field;
    const char* text;
} hab_host_value;

/* Writes all values in their order, or none. On a failure `failed` (may be null) gets the place of the value that was
 * refused, or `count` when the store failed as a whole. */
int hab_host_set_all(hab_session* session, const hab_host_value* values, size_t count, size_t* failed);

/* Visits every value that differs from its default, as of one instant, by table, row and field in the schema's order.
 */
int hab_host_each_value(hab_session* session, void (*visit)(const hab_host_value* value, void* context), void* context);

/* HAB_OK while the session's store file is in its place. */
int hab_host_check(hab_session* session);

#ifdef __cplusplus
}
#endif
#endif

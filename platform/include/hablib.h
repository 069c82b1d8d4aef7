/* hablib.h - client library of the hab store, the router's typed configuration and status database.
 *
 * Conventions:
 *  1. A value is addressed by table, row (0 for single-row tables) and field. Names are exact and case-sensitive.
 *  2. Unless stated otherwise, an operation returns a status below. A failed write changes nothing.
 *  3. Texts are NUL-terminated. Buffer lengths include the NUL. A failed read leaves an empty text in the buffer
 *     and any other result unchanged.
 *  4. A session handle may be used by several threads at once, and inside a notice handler. A destroyed handle
 *     returns HAB_SHUTDOWN, a null handle HAB_INVALID.
 *  5. Reading a value that was never written returns the field's default.
 *  6. An operation waits at most two seconds for other users of the store (HAB_TIMEOUT).
 *  7. Sessions are not usable after fork(): a child process must exec before it uses the store. */
#ifndef HABLIB_H
#define HABLIB_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses and their causes. */
#define HAB_OK 0          /* done */
#define HAB_TIMEOUT 1     /* the store stayed busy */
#define HAB_SHUTDOWN 2    /* the session was destroyed */
#define HAB_NOSUCH_ITEM 3 /* no such table, field or row */
#define HAB_TOO_LONG 4    /* text longer than the field (write) or than the buffer (read) */
#define HAB_INVALID 5     /* a null or malformed argument */
#define HAB_WRONG_TYPE 6  /* the field has another type */
#define HAB_ENCODING 7    /* a byte above 127 in an ascii or enum value */
#define HAB_ERROR 8       /* the store failed, or its file was replaced or deleted */
#define HAB_UNKNOWN 9

typedef struct hab_session hab_session; /* opaque; owned by the caller of hab_init */

/* Opens a session, in well under a millisecond. When the store cannot be opened for reading and writing, prints the
 * cause in one line on standard error and returns null. */
hab_session* hab_init(void);

/* Closes a session. Does not wait for a running notice handler; none starts afterwards. Null is ignored. */
void hab_destroy(hab_session* session);

/* Returns the library's text for a status: a constant, never null. */
const char* hab_error_string(int status);

/* Typed reads. */
int hab_get_ascii(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length);
int hab_get_string(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length);
int hab_get_enum(hab_session* session, const char* table, int row, const char* field, char* buffer, size_t length);
int hab_get_bool(hab_session* session, const char* table, int row, const char* field, bool* value);
int hab_get_int(hab_session* session, const char* table, int row, const char* field, int32_t* value);
int hab_get_uint(hab_session* session, const char* table, int row, const char* field, uint32_t* value);
int hab_get_ipv4(hab_session* session, const char* table, int row, const char* field, uint8_t address[4]);
int hab_get_mac(hab_session* session, const char* table, int row, const char* field, uint8_t mac[6]);

/* Typed writes. A write that returns HAB_OK is committed and survives the death of any process. Each write sends a
 * change notice, also when the value is unchanged. Ascii and enum values contain bytes 1 to 127, a string any byte but
 * NUL. */
int hab_set_ascii(hab_session* session, const char* table, int row, const char* field, const char* text);
int hab_set_string(hab_session* session, const char* table, int row, const char* field, const char* text);
int hab_set_enum(hab_session* session, const char* table, int row, const char* field, const char* text);
int hab_set_bool(hab_session* session, const char* table, int row, const char* field, bool value);
int hab_set_int(hab_session* session, const char* table, int row, const char* field, int32_t value);
int hab_set_uint(hab_session* session, const char* table, int row, const char* field, uint32_t value);
int hab_set_mac(hab_session* session, const char* table, int row, const char* field, const uint8_t mac[6]);

/* Parses six two-digit hexadecimal groups joined by colons. Returns 0, or HAB_INVALID and leaves `mac`
 * unchanged. */
int hab_string2mac(const char* text, uint8_t mac[6]);

/* Receives change notices: the table, the row and the field's own name (never an alias), valid during the call, and the
 * context passed to hab_subscribe_cb. Runs on the session's delivery thread, in commit order. It may read, write,
 * subscribe, destroy its session, and block for any time. */
typedef void (*hab_notice_handler)(const char* table, int row, const char* field, void* context);

/* Subscribes to later changes of every field of `table`, including this session's own writes. `whole_table` must be 1.
 * Repeated calls have no effect. */
int hab_subscribe(hab_session* session, const char* table, int whole_table);

/* Installs the handler for all notices of the session and replaces an earlier one. Notices that arrive without a
 * handler are dropped. */
int hab_subscribe_cb(hab_session* session, hab_notice_handler handler, void* context);

/* A set of caller-owned entries, ordered by `compare` (as strcmp). Not thread-safe. */
typedef struct sorted_set sortedSet;
typedef int (*sortedSet_compare)(const void* left, const void* right);

/* Creates an empty set with room for `capacity` entries; it grows when needed. Returns null when out of memory or
 * `compare` is null. */
sortedSet* sortedSet_init(size_t capacity, sortedSet_compare compare);
/* Adds `entry`. Returns 0. Returns 1 and changes nothing when an equal entry exists or memory runs out. */
int sortedSet_add(sortedSet* set, void* entry);
/* Returns the entry that compares equal to `probe`, or null. */
void* sortedSet_find(const sortedSet* set, const void* probe);
/* Returns the smallest entry, or null when the set is empty. */
void* sortedSet_first(const sortedSet* set);
/* Removes the entry that compares equal to `entry`; it is not freed. Returns 0, or 1 when there is none. */
int sortedSet_rem(sortedSet* set, const void* entry);
size_t sortedSet_len(const sortedSet* set);
/* Frees the set, not its entries. */
void sortedSet_destroy(sortedSet* set);

#ifdef __cplusplus
}
#endif
#endif

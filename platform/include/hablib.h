/* hablib.h - client library of the hab store, the router's typed configuration and status database.
 *
 * Conventions:
 *  1. A value is addressed by table, row (0 for single-row tables) and field. Names are exact and case-sensitive.
 *  2. Every operation returns a status below unless said otherwise. Nothing is written when a write fails.
 *  3. Texts are NUL-terminated. A buffer length counts the NUL. A read that fails leaves an empty text in the buffer
 * and any other kind of result untouched.
 *  4. A session handle may be used from any thread, by several at once, also inside a notice handler. A handle that was
 *     destroyed answers HAB_SHUTDOWN; a null one HAB_INVALID.
 *  5. A read of a value never written gives the field's default.
 *  6. An operation waits at most two seconds for other users of the store (HAB_TIMEOUT).
 *  7. Sessions do not pass a fork(): a child process must exec before it uses the store. */
#ifndef HABLIB_H
#define HABLIB_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses, with what causes each. */
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

typedef struct hab_session hab_session; /* opaque; owned by whoever called hab_init */

/* Opens a session, in well under a millisecond. Returns null when the store cannot be opened for reading and writing
 * and then says why, in one line, on standard error. */
hab_session* hab_init(void);

/* Closes a session. Does not wait for a notice handler that is running; none starts afterwards. Null is ignored. */
void hab_destroy(hab_session* session);

/* The library's text for a status: a constant, never null. */
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

/* Typed writes. Each is committed when it returns HAB_OK, survives the death of any process, and sends a change notice,
 * also when it wrote the value already held. Ascii and enum values hold bytes 1 to 127, a string any byte but NUL. */
int hab_set_ascii(hab_session* session, const char* table, int row, const char* field, const char* text);
int hab_set_string(hab_session* session, const char* table, int row, const char* field, const char* text);
int hab_set_enum(hab_session* session, const char* table, int row, const char* field, const char* text);
int hab_set_bool(hab_session* session, const char* table, int row, const char* field, bool value);
int hab_set_int(hab_session* session, const char* table, int row, const char* field, int32_t value);
int hab_set_uint(hab_session* session, const char* table, int row, const char* field, uint32_t value);
int hab_set_mac(hab_session* session, const char* table, int row, const char* field, const uint8_t mac[6]);

/* Parses six two-digit hexadecimal groups joined by colons. Returns 0, or HAB_INVALID (then `mac` is untouched). */
int hab_string2mac(const char* text, uint8_t mac[6]);

/* Receives change notices: the table, the row and the field's own name (never an alias), valid during the call, and the
 * context given to hab_subscribe_cb. Runs on the session's one delivery thread, in commit order; it may read, write,
 * subscribe, destroy its session and block as long as it likes. */
typedef void (*hab_notice_handler)(const char* table, int row, const char* field, void* context);

/* Asks for change notices on every field of `table`, from now on, this session's own writes included. `whole_table`
 * must be 1. Asking twice is harmless. */
int hab_subscribe(hab_session* session, const char* table, int whole_table);

/* Installs the one handler that receives every notice of the session, replacing an earlier one. Notices that come while
 * there is no handler are dropped. */
int hab_subscribe_cb(hab_session* session, hab_notice_handler handler, void* context);

/* A set of caller-owned entries in the order of `compare` (as for strcmp). Not locked. */
typedef struct sorted_set sortedSet;
typedef int (*sortedSet_compare)(const void* left, const void* right);

/* Makes an empty set with room for `capacity` entries; it grows beyond. Returns null when out of memory. */
sortedSet* sortedSet_init(size_t capacity, sortedSet_compare compare);
/* Adds `entry`. Returns 0, or 1 when an equal entry is there already (nothing changes) or memory ran out. */
int sortedSet_add(sortedSet* set, void* entry);
/* The stored entry that compares equal to `probe`, or null. */
void* sortedSet_find(const sortedSet* set, const void* probe);
/* The smallest entry, or null when the set is empty. */
void* sortedSet_first(const sortedSet* set);
/* Takes the entry that compares equal to `entry` out of the set (it is not freed). Returns 0, or 1 when there is none.
 */
int sortedSet_rem(sortedSet* set, const void* entry);
size_t sortedSet_len(const sortedSet* set);
/* Frees the set, not its entries. */
void sortedSet_destroy(sortedSet* set);

#ifdef __cplusplus
}
#endif
#endif

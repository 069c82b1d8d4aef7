/* habdynlog.h - the router's dynamic log library, as the agent uses it.
 *
 * Every function may be called from any thread, before dynlog_lib_init and after dynlog_lib_uninit too: a line logged
 * then goes to standard error, or nowhere; it never fails. Every level is logged until set_log_level has been called. C
 * ABI, usable from plain C. */
#ifndef HABDYNLOG_H
#define HABDYNLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the log: standard error, or the rotating file that the environment variable HAB_LOG_FILE names (mode 0600).
 * Returns 0, or non-zero when the file cannot be opened. May be called again after dynlog_lib_uninit. */
int dynlog_lib_init(void);

/* Flushes and closes the log. Lines logged afterwards are dropped. */
void dynlog_lib_uninit(void);

/* Names the module whose lines follow, and reads its level mask from the store (dalLogCfg.DroagentLogMask: bit 0 trace,
 * bit 1 notice, bit 2 error, that is, the levels 1, 2 and 4 added up; a store that cannot be read leaves the mask, or
 * sets it to 6 at the first call). `reload` is 0 at start-up and 1 when the configuration is to be read again. `binary`
 * is the program's name, kept for platforms that show it. Both texts are copied. */
void set_log_level(int reload, const char* module, const char* binary);

/* Writes one line when `level` (1 trace, 2 notice, 4 error) is selected: time, module, level, file:line, message. The
 * message's last newline is dropped and every other control byte is escaped, so one call is always one line. `file` may
 * be a path; its last component is shown. */
void log_printf(int level, const char* file, int line, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

#ifdef __cplusplus
}
#endif
#endif

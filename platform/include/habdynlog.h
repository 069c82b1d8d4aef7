/* habdynlog.h - the part of the router's dynamic log library that the agent uses.
 *
 * Every function may be called from any thread, also before dynlog_lib_init and after dynlog_lib_uninit. Before
 * dynlog_lib_init, lines go to standard error. After dynlog_lib_uninit, they are dropped. Logging never fails. Every
 * level is logged until set_log_level is called. C ABI, usable from plain C. */
#ifndef HABDYNLOG_H
#define HABDYNLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the log: the rotating file in the environment variable HAB_LOG_FILE (mode 0600), or standard error when unset.
 * Returns 0, or non-zero when the file cannot be opened. May be called again after dynlog_lib_uninit. */
int dynlog_lib_init(void);

/* Flushes and closes the log. Later lines are dropped. */
void dynlog_lib_uninit(void);

/* Sets the module name of later lines and reads the level mask from the store (dalLogCfg.DroagentLogMask, the sum of
 * the levels: 1 trace, 2 notice, 4 error). When the store cannot be read, the mask is unchanged, or 6 at the first
 * call. `reload` is 0 at start-up and 1 when the configuration is read again. `binary` is the program's name, for
 * platforms whose log lines contain it. Both texts are copied. */
void set_log_level(int reload, const char* module, const char* binary);

/* Writes one line when `level` (1 trace, 2 notice, 4 error) is in the mask: time, module, level, file:line, message.
 * The message's last newline is removed and other control bytes are escaped, so each call writes exactly one line.
 * `file` may be a path; the line contains its last component. */
void log_printf(int level, const char* file, int line, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

#ifdef __cplusplus
}
#endif
#endif

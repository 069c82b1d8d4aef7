/* Options of the sanitizers' runtimes, linked into every program of a sanitizer build. */
const char* __tsan_default_options(void);

/* A signal handler of the agent may allocate and lock: it only runs where the main thread holds no lock. */
const char* __tsan_default_options(void) {
    return "report_signal_unsafe=0";
}

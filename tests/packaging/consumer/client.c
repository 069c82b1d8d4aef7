/* A program outside this source tree, in plain C: prints the agent's version from the store. */
#include <habhost.h>
#include <hablib.h>
#include <stdio.h>

int main(void) {
    char version[32];
    hab_session* session = hab_init();
    const int status = hab_get_string(session, "DalModuleVersion", 0, "DroagentVersion", version, sizeof version);
    printf("%s %s\n", hab_error_string(status), version);
    hab_destroy(session);
    return status;
}

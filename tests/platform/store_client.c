/* A client in plain C: store_client FROM writes FROM, FROM + 1, ... to DALHConfig.ProcessID forever, printing each on
 * standard output once it is committed. */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "habhost.h"

int main(int argc, char** argv) {
    hab_session* session = hab_init();
    for (uint32_t value = argc == 2 ? (uint32_t)strtoul(argv[1], NULL, 10) : 0;; ++value) {
        const int status = hab_set_uint(session, "DALHConfig", 0, "ProcessID", value);
        char line[16];
        const int length = snprintf(line, sizeof line, "%u\n", (unsigned)value);
        if (status != HAB_OK || write(STDOUT_FILENO, line, (size_t)length) != length) {
            return status;
        }
    }
}

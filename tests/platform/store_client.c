/* A client in plain C: store_client FROM [FILE] writes FROM, FROM + 1, ... to DALHConfig.ProcessID forever, and to
 * BSTResults.Latency when a file is named. Each committed value is printed on standard output, or stored in the file:
 * two numbers of 32 bits. */
#include <fcntl.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "habhost.h"

int main(int argc, char** argv) {
    hab_session* session = hab_init();
    _Atomic uint32_t* committed = NULL;
    if (argc == 3) {
        const int file = open(argv[2], O_RDWR | O_CLOEXEC);
        committed = mmap(NULL, 2 * sizeof *committed, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    for (uint32_t value = argc > 1 ? (uint32_t)strtoul(argv[1], NULL, 10) : 0;; ++value) {
        int status = hab_set_uint(session, "DALHConfig", 0, "ProcessID", value);
        if (committed != NULL) {
            committed[0] = status == HAB_OK ? value : 0;
            status = hab_set_uint(session, "BSTResults", 0, "Latency", value);
            committed[1] = status == HAB_OK ? value : 0;
        } else {
            char line[16];
            const int length = snprintf(line, sizeof line, "%u\n", (unsigned)value);
            status = status == HAB_OK && write(STDOUT_FILENO, line, (size_t)length) == length ? HAB_OK : HAB_ERROR;
        }
        if (status != HAB_OK) {
            return status;
        }
    }
}

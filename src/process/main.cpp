// The shipped agent.
#include "dro_main.h"
#include "dro_threads.h"

int main(int argc, char** argv) {
    dro::end_process(dro::droagent_main(argc, argv));
}

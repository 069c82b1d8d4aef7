#include "dro_url_pipeline.h"

#include "dro_bst.h"
#include "dro_cdil.h"
#include "dro_dispatcher.h"
#include "dro_dtn.h"
#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_ndn.h"

namespace dro {

int init_devToCld_push_sync() {
    const bool cdil = read_bool(fields::cdilSupport);
    const bool dispatcher = read_bool(fields::dispatcherSupport);
    const bool speedTest = read_bool(fields::BSTSupport);
    if (cdil) {
        init_cdil_dal_sub();
    }
    if (dispatcher) {
        init_ndn_dal_sub();
        init_dtn_dal_sub();
        InitQueue();
        init_dispatcher();
    }
    if (speedTest) {
        init_BST_dal_sub();
    }
    return 0;
}

}  // namespace dro

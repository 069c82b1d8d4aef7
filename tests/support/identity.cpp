#include "identity.h"

namespace dro_test {

void set_identity(TestStore& store) {
    store.set_all({{"General.DeviceModel", "RX-1"},
                   {"General.DeviceName", "Home router"},
                   {"General.FwRevision", "7.8.9"},
                   {"General.FSN", kSerial},
                   {"General.DefaultMAC", "02:00:00:00:00:0A"},
                   {"JorvagentCfg.jorv_agent_id", "jorv-1"},
                   {"JorvagentCfg.jorv_agent_claim_code", "claim-1"},
                   {"dalLogCfg.DroagentLogMask", "7"}});
}

}  // namespace dro_test

#include "dro_get_dalfld.h"

#include <cstdio>
#include <memory>

#include "dro_fields.h"
#include "dro_log.h"
#include "dro_store.h"
#include "dro_sync.h"

namespace dro {
namespace {

struct SessionEnd {
    void operator()(hab_session* session) const { hab_destroy(session); }
};
using Session = std::unique_ptr<hab_session, SessionEnd>;

Mutex g_recordLock;
Identity g_record DRO_GUARDED_BY(g_recordLock);

int read_own_session(TextReader reader, const Field& field, char* buffer, std::size_t length) {
    const Session session(hab_init());
    return session ? reader(session.get(), field.table, field.row, field.name, buffer, length) : HAB_ERROR;
}

bool complete(const Identity& record) {
    return !record.FSN.empty() && !record.JorvID.empty() && !record.DeviceName.empty() && !record.DeviceModel.empty() &&
           !record.FwRevision.empty() && record.DefaultMAC != "00:00:00:00:00:00";
}

}  // namespace

Identity tv() {
    const MutexLock lock(g_recordLock);
    return g_record;
}

int Jorv_get_JorvID(char* buffer, std::size_t length) {
    return read_own_session(hab_get_ascii, {"JorvagentCfg", "jorv_agent_id"}, buffer, length);
}

int Jorv_get_claimcode(char* buffer, std::size_t length) {
    return read_own_session(hab_get_string, {"JorvagentCfg", "jorv_agent_claim_code"}, buffer, length);
}

int get_DeviceModel(char* buffer, std::size_t length) {
    return read_own_session(hab_get_string, {"General", "DeviceModel"}, buffer, length);
}

int get_DeviceName(char* buffer, std::size_t length) {
    return read_own_session(hab_get_string, fields::DeviceName, buffer, length);
}

int get_FSN(char* buffer, std::size_t length) {
    return read_own_session(hab_get_ascii, {"General", "FSN"}, buffer, length);
}

int get_FwRevision(char* buffer, std::size_t length) {
    return read_own_session(hab_get_ascii, {"General", "FwRevision"}, buffer, length);
}

int get_DroCfg(char* buffer, std::size_t length) {
    return read_own_session(hab_get_ascii, {"Drocfg", "DroBaseURL"}, buffer, length);
}

int get_DefaultMAC(char* buffer) {
    Mac mac{};
    const Session session(hab_init());
    const int status = session ? hab_get_mac(session.get(), "General", 0, "DefaultMAC", mac.data()) : HAB_ERROR;
    std::snprintf(buffer, DefaultMACsize, "%s", mac_text(mac).c_str());
    return status;
}

int get_hab_info() {
    Identity record = tv();
    LOG_TRACE("Getting the jorvId size");
    print_err(Jorv_get_JorvID(record.JorvID.data(), JorvIDsize));
    LOG_TRACE("Error logs after jorvid");
    LOG_NOTICE("JorvID %s\n", record.JorvID.c_str());
    print_err(Jorv_get_claimcode(record.claimCode.data(), bufsize));
    LOG_NOTICE("claimed %s\n", record.claimCode.c_str());
    print_err(get_FSN(record.FSN.data(), FSNsize));
    LOG_NOTICE("FSN %s\n", record.FSN.c_str());
    print_err(get_DeviceModel(record.DeviceModel.data(), DeviceModelsize));
    LOG_NOTICE("DeviceModel %s\n", record.DeviceModel.c_str());
    print_err(get_DeviceName(record.DeviceName.data(), DeviceNamesize));
    LOG_NOTICE("DeviceName %s\n", record.DeviceName.c_str());
    print_err(get_DroCfg(record.DroBaseURL.data(), DroBaseURLsize));
    LOG_NOTICE("DroBaseURL %s\n", record.DroBaseURL.c_str());
    print_err(get_FwRevision(record.FwRevision.data(), FwRevisionsize));
    LOG_NOTICE("FwRevision %s\n", record.FwRevision.c_str());
    print_err(get_DefaultMAC(record.DefaultMAC.data()));
    LOG_NOTICE("DefaultMAC %s\n\n", record.DefaultMAC.c_str());
    LOG_TRACE("serialNo : %s, modelNumber : %s, MacAddr : %s, fwVersion :%s\n", record.FSN.c_str(),
              record.DeviceModel.c_str(), record.DefaultMAC.c_str(), record.FwRevision.c_str());
    const MutexLock lock(g_recordLock);
    g_record = record;
    return complete(record) ? 0 : 1;
}

}  // namespace dro

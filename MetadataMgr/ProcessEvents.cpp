// Death and restart of other processes. A death changes nothing: the last values a server
// delivered stay in the store. A restarted server has forgotten its subscribers, so the client
// made at start-up sends all of its subscriptions again; the server's next notices bring the
// store up to date.
#include "Log.h"
#include "MetadataMgr.h"

namespace {

struct Renewal {
    e_Process process;
    const char* notice;  // logged (mask 128) before the renewal
};

// The servers this process subscribes to; every other process is ignored.
const Renewal kRenewals[] = {
    {e_Process_StateMgr, "Need to resubscribe to StateMgr"},
    {e_Process_ConfigMgr, "Need to resubscribe to ConfigMgr"},
    {e_Process_Fpga, "Need to resubscribe to FpgaHal"},
    {e_Process_RadarHal, "Need to resubscribe to RadarHal"},
    {e_Process_MicMgr, "Need to resubscribe to MicMgr"},
    {e_Process_GpsHal, "Need to resubscribe to GpsHal"},
    {e_Process_AccelHal, "Need to resubscribe to AccelHal"},
    {e_Process_TempHal, "Need to resubscribe to TempHal"},
    {e_Process_VideoMgr, "Need to resubscribe to VideoMgr"},
    {e_Process_ExternalMgr, "Need to resubscribe to ExternalMgr"},
};

}  // namespace

void MetadataMgr::ProcessDied(LinxIpc& /*ipc*/, e_Process process) {
    MM_LOG(64) << "Process Died " << static_cast<unsigned int>(process);
}

void MetadataMgr::ProcessRestarted(LinxIpc& /*ipc*/, e_Process process) {
    MM_LOG(64) << "Process Restarted " << static_cast<unsigned int>(process);
    for (const Renewal& renewal : kRenewals) {
        if (renewal.process != process) {
            continue;
        }
        MM_LOG(128) << renewal.notice;
        // A server switched off by its environment variable has no client; its renewal is
        // refused like any other, and the process keeps running.
        SubscribeClient* client = ClientOf(process);
        if (client == nullptr || client->Resubscribe() != 0) {
            MM_LOG(1) << "MetadataMgr FAILED to resubsribe to a server";
        }
        return;
    }
}

#include "ServerClients.h"

#include "Item.h"
#include "LinxServerNameList.h"

namespace {
const std::string& NameOf(e_Process process) {
    return LinxServerNameList::Instance().Name(process);
}
}  // namespace

const unsigned int StateMgrClient::kRecordStartItem;
const unsigned int StateMgrClient::kRecordStopItem;
const unsigned int StateMgrClient::kEnterCovertModeItem;
const unsigned int StateMgrClient::kExitCovertModeItem;

ConfigClient::ConfigClient(LinxIpc& ipc, int timeoutMs)
    : SubscribeClient(ipc, NameOf(e_Process_ConfigMgr), timeoutMs) {}

FpgaClient::FpgaClient(LinxIpc& ipc)
    : SubscribeClient(ipc, NameOf(e_Process_Fpga), kDefaultTimeoutMs) {}

GpsHalClient::GpsHalClient(LinxIpc& ipc)
    : SubscribeClient(ipc, NameOf(e_Process_GpsHal), kDefaultTimeoutMs) {}

RadarHalClient::RadarHalClient(LinxIpc& ipc)
    : SubscribeClient(ipc, NameOf(e_Process_RadarHal), kDefaultTimeoutMs) {}

MicClient::MicClient(LinxIpc& ipc)
    : SubscribeClient(ipc, NameOf(e_Process_MicMgr), kDefaultTimeoutMs) {}

VideoMgrClient::VideoMgrClient(LinxIpc& ipc)
    : SubscribeClient(ipc, NameOf(e_Process_VideoMgr), kDefaultTimeoutMs) {}

AccelHalClient::AccelHalClient(LinxIpc& ipc)
    : SubscribeClient(ipc, NameOf(e_Process_AccelHal), kDefaultTimeoutMs) {}

TempHalClient::TempHalClient(LinxIpc& ipc)
    : SubscribeClient(ipc, NameOf(e_Process_TempHal), kDefaultTimeoutMs) {}

StateMgrClient::StateMgrClient(LinxIpc& ipc, int timeoutMs)
    : SubscribeClient(ipc, NameOf(e_Process_StateMgr), timeoutMs) {}

// The state manager answers with the tick of its last such event; only the later notices
// matter to a subscriber, so the answer is read and dropped.
bool StateMgrClient::SubscribeForRecordStart(unsigned int notifyId, LinxHandler handler,
                                             void* context) {
    SystickItem tick;
    return Subscribe(kRecordStartItem, notifyId, tick, handler, context) == 0;
}

bool StateMgrClient::SubscribeForRecordStop(unsigned int notifyId, LinxHandler handler,
                                            void* context) {
    SystickItem tick;
    return Subscribe(kRecordStopItem, notifyId, tick, handler, context) == 0;
}

bool StateMgrClient::SubscribeForEnterCovertMode(unsigned int notifyId, LinxHandler handler,
                                                 void* context) {
    SystickItem tick;
    return Subscribe(kEnterCovertModeItem, notifyId, tick, handler, context) == 0;
}

bool StateMgrClient::SubscribeForExitCovertMode(unsigned int notifyId, LinxHandler handler,
                                                void* context) {
    SystickItem tick;
    return Subscribe(kExitCovertModeItem, notifyId, tick, handler, context) == 0;
}

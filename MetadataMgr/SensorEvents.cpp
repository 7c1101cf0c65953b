// Microphones, temperatures and crash detection.
#include <cstring>

#include "Handler.h"
#include "MetadataMgr.h"

namespace {
// Microphone state notice: tick at 0, microphone number at 4, present at 8, active at 9.
const unsigned int kMicStateSize = 10;
const unsigned int kHighestMic = 3;

struct TempSlot {
    e_TempSensors sensor;
    unsigned int index;  // position of the value in the temperature item
};
// The item lists the sensors from 3 down to 0; the store expects sensor 3 first, then 0, 1, 2.
const TempSlot kTempSlots[] = {
    {e_Temp_3, 0},
    {e_Temp_0, 3},
    {e_Temp_1, 2},
    {e_Temp_2, 1},
};
}  // namespace

void MetadataMgr::ReportMicState(e_MicrophonePosition mic, bool present, bool active,
                                 unsigned int tick, bool report) {
    dataStore.ReportMicPresent(mic, present, report, tick);
    dataStore.ReportMicState(mic, active, report, tick);
}

void MetadataMgr::ReportMicStatus(const MicStatusResponse& status, bool report) {
    MM_LOG(128) << "ReportMicStatus";
    for (unsigned int i = 0; i < status.Count(); ++i) {
        const MicStatusResponse::Entry& entry = status.EntryAt(i);
        MM_LOG(32) << static_cast<unsigned int>(entry.position) << " active=" << entry.active
                   << " present=" << entry.present;
        ReportMicState(entry.position, entry.present, entry.active, status.tick, report);
    }
}

void MetadataMgr::ReportTempChange(const TempStatus& temp, bool report) {
    for (const TempSlot& slot : kTempSlots) {
        dataStore.ReportTemp(slot.sensor, temp.temperatures[slot.index], report, temp.tick);
    }
}

void MetadataMgr::HandleCrash(bool crash, unsigned int tick) {
    // Crash detection is always an event for the store, also as the value read at subscription.
    dataStore.ReportStateData(crash ? e_Tag_CrashDetected : e_Tag_CrashCleared, true, tick);
}

void MetadataMgr::MicStateChangedHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("MicStateChangedHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        if (!payload::Holds(msg, kMicStateSize)) {
                            return false;
                        }
                        const unsigned char* data = msg.DataPtr();
                        unsigned int tick = 0;
                        unsigned int mic = 0;
                        std::memcpy(&tick, data, sizeof tick);
                        std::memcpy(&mic, data + 4, sizeof mic);
                        if (mic > kHighestMic) {
                            MM_LOG(1) << "ReportMicState: Invalid mic no " << mic;
                            return true;
                        }
                        mgr.ReportMicState(static_cast<e_MicrophonePosition>(mic), data[8] != 0,
                                           data[9] != 0, tick, true);
                        return true;
                    });
}

void MetadataMgr::MicMgrStatusHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("MicMgrStatusHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        MicStatusResponse status;
                        if (!payload::DecodeFromData(msg, status)) {
                            return false;
                        }
                        mgr.ReportMicStatus(status, true);
                        return true;
                    });
}

void MetadataMgr::TempChangeHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("TempChangeHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        TempStatus temp;
                        if (!payload::DecodeFromData(msg, temp)) {
                            return false;
                        }
                        mgr.ReportTempChange(temp, true);
                        return true;
                    });
}

void MetadataMgr::CrashDetectHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("CrashDetectHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        CrashItem item;
                        if (!payload::DecodeFromData(msg, item)) {
                            return false;
                        }
                        mgr.HandleCrash(item.crash, item.tick);
                        return true;
                    });
}

// The vehicle's discrete inputs as the FPGA reports them: a mask of the inputs that changed and
// the current level of every input, in the same bit positions.
#include "Handler.h"
#include "MetadataMgr.h"

namespace {
struct InputSignal {
    unsigned int bit;
    e_Tag active;
    e_Tag inactive;
    const char* text;
};

// The store receives the entries in this order, which is neither the order of the bits nor of
// the tags; readers of the metadata files rely on it.
const InputSignal kInputSignals[] = {
    {0x00008000u, e_Tag_LightsOn, e_Tag_LightsOff, " lights changed"},
    {0x00010000u, e_Tag_BrakesOn, e_Tag_BrakesOff, " brakes changed"},
    {0x00020000u, e_Tag_SirenOn, e_Tag_SirenOff, " siren changed"},
    {0x00004000u, e_Tag_AuxOn, e_Tag_AuxOff, " aux changed"},
    {0x00080000u, e_Tag_DoorOpen, e_Tag_DoorClosed, " doorOpen changed"},
    {0x00002000u, e_Tag_IgnitionOn, e_Tag_IgnitionOff, " ignition changed"},
};
}  // namespace

void MetadataMgr::ReportExternalEvent(const FpgaExternalEventItem& item, bool report) {
    MM_LOG(128) << "Add in SystemTick to ExternalEvent - tick = " << item.tick;
    for (const InputSignal& signal : kInputSignals) {
        if ((item.changedMask & signal.bit) == 0) {
            continue;
        }
        MM_LOG(128) << "ReportExternalEvent" << signal.text;
        const bool active = (item.inputLevels & signal.bit) != 0;
        dataStore.ReportStateData(active ? signal.active : signal.inactive, report, item.tick);
    }
}

void MetadataMgr::ExternalInputEventHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("ExternalInputEventHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        FpgaExternalEventItem item;
                        if (!payload::DecodeFromMessage(msg, item)) {
                            return false;
                        }
                        mgr.ReportExternalEvent(item, true);
                        return true;
                    });
}

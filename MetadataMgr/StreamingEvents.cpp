// Live video streaming: the external manager reports the state of each of its six streams.
#include <arpa/inet.h>

#include "Handler.h"
#include "MetadataMgr.h"
#include "StreamingLvsStateItem.h"

void MetadataMgr::ReportLVSStateChange(const ExternalMgrApi::StreamingLvsStateItem& item,
                                       bool report, int stream, unsigned int tick) {
    const bool enabled = item.Enabled();
    const bool highQuality = item.HighQuality();
    const unsigned short camera = item.Camera();
    const char* address = item.Address();
    const unsigned short port = item.Port();
    MM_LOG(16) << "Rcvd ext streaming state change, stream " << stream << "  en:" << enabled
               << "  HiQual:" << highQuality << "  Cam:" << static_cast<unsigned int>(camera)
               << "  Ip: " << address << "  Port:" << static_cast<unsigned int>(port);
    // An unparsable address becomes 0xFFFFFFFF; the store keeps it as the receiver's address.
    const unsigned int ipv4 = static_cast<unsigned int>(inet_addr(address));
    dataStore.ReportLvsState(static_cast<e_VideoStream>(stream),
                             static_cast<unsigned char>(camera & 0xFFu), highQuality, enabled, ipv4,
                             port, report, tick);
}

void MetadataMgr::LVSStateChangeHandler(LinxIpc* ipc, void* context, int stream) {
    const HandlerTexts texts{"LVSStateChangeHandler", "LVSStateChangeHandler", 128};
    RunEventHandler(ipc, context, texts, [stream](MetadataMgr& mgr, IpcMessage& msg) {
        ExternalMgrApi::StreamingLvsStateItem item;
        if (!payload::DecodeFromData(msg, item)) {
            return false;
        }
        // A system-wide high-quality setting overrides what the stream reports; it never
        // lowers it.
        if (ExternalMgrApi::InLvsForceHqStreaming()) {
            item.SetHighQuality(true);
        }
        mgr.ReportLVSStateChange(item, true, stream, mgr.GetLastSystemTick());
        return true;
    });
}

void MetadataMgr::LVSStateChangeHandler_0(LinxIpc* ipc, void* context) {
    LVSStateChangeHandler(ipc, context, 0);
}
void MetadataMgr::LVSStateChangeHandler_1(LinxIpc* ipc, void* context) {
    LVSStateChangeHandler(ipc, context, 1);
}
void MetadataMgr::LVSStateChangeHandler_2(LinxIpc* ipc, void* context) {
    LVSStateChangeHandler(ipc, context, 2);
}
void MetadataMgr::LVSStateChangeHandler_3(LinxIpc* ipc, void* context) {
    LVSStateChangeHandler(ipc, context, 3);
}
void MetadataMgr::LVSStateChangeHandler_4(LinxIpc* ipc, void* context) {
    LVSStateChangeHandler(ipc, context, 4);
}
void MetadataMgr::LVSStateChangeHandler_5(LinxIpc* ipc, void* context) {
    LVSStateChangeHandler(ipc, context, 5);
}

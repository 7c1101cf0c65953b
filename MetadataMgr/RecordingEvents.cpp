// Recording start and stop, covert mode and bookmarks: the state manager's events and the two
// notices other processes send straight to this endpoint.
#include <cstring>

#include "Handler.h"
#include "MetadataMgr.h"
#include "MetadataMgrServer.h"

namespace {
// Direct record start/stop notice: tick at 0, start (1) or stop (0) in byte 4.
const unsigned int kRecordStartStopSize = 5;
// Bookmark notice: the tick at 0.
const unsigned int kBookmarkSize = 4;

unsigned int ReadTick(const unsigned char* data) {
    unsigned int tick = 0;
    std::memcpy(&tick, data, sizeof tick);
    return tick;
}
}  // namespace

void MetadataMgr::ReportRecordingEvent(bool recordStart, unsigned int tick, bool report) {
    MM_LOG(128) << "ReportRecordingEvent - recordStart = " << recordStart;
    dataStore.ReportStateData(static_cast<e_Tag>(71 - (recordStart ? 1 : 0)), report, tick);
}

void MetadataMgr::ReportCovertModeEvent(bool enabled, unsigned int tick, bool report) {
    MM_LOG(128) << "ReportCovertModeEvent - enabled = " << enabled;
    dataStore.ReportStateData(static_cast<e_Tag>(59 - (enabled ? 1 : 0)), report, tick);
}

void MetadataMgr::ReportBookmark(unsigned int tick) {
    MM_LOG(128) << "ReportBookmark";
    // The store holds the bookmark before any subscriber hears of it.
    dataStore.ReportBookmark(tick);
    if (server != nullptr) {
        server->Bookmark();
    }
}

void MetadataMgr::RecordStartHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("RecordStartHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        SystickItem item;
                        if (!payload::DecodeFromData(msg, item)) {
                            return false;
                        }
                        // The state manager sends a zero tick for a start it has no time for; only
                        // the start is filtered, a stop always reaches the store.
                        if (item.Get() != 0) {
                            mgr.ReportRecordingEvent(true, item.Get(), true);
                        }
                        return true;
                    });
}

void MetadataMgr::RecordStopHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("RecordStopHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        SystickItem item;
                        if (!payload::DecodeFromData(msg, item)) {
                            return false;
                        }
                        mgr.ReportRecordingEvent(false, item.Get(), true);
                        return true;
                    });
}

void MetadataMgr::EnterCovertModeHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("EnterCovertModeHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        SystickItem item;
                        if (!payload::DecodeFromData(msg, item)) {
                            return false;
                        }
                        mgr.ReportCovertModeEvent(true, item.Get(), true);
                        return true;
                    });
}

void MetadataMgr::ExitCovertModeHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("ExitCovertModeHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        SystickItem item;
                        if (!payload::DecodeFromData(msg, item)) {
                            return false;
                        }
                        mgr.ReportCovertModeEvent(false, item.Get(), true);
                        return true;
                    });
}

void MetadataMgr::RecordStartStopHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("RecordStartStopHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        if (!payload::Holds(msg, kRecordStartStopSize)) {
                            return false;
                        }
                        const unsigned char* data = msg.DataPtr();
                        mgr.ReportRecordingEvent(data[4] != 0, ReadTick(data), true);
                        return true;
                    });
}

void MetadataMgr::BookmarkHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("BookmarkHandler"), [](MetadataMgr& mgr, IpcMessage& msg) {
        if (!payload::Holds(msg, kBookmarkSize)) {
            return false;
        }
        mgr.ReportBookmark(ReadTick(msg.DataPtr()));
        return true;
    });
}

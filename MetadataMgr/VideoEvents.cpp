// Camera ports, video streams and stream quality.
#include <cstring>

#include "Handler.h"
#include "MetadataMgr.h"

namespace {
// Stream and camera state notices: three words, tick, number, state.
const unsigned int kStateNoticeSize = 12;
const unsigned int kHighestNumber = 3;
// Port 3 of the camera item reports the last of entries 5 to 8 that records or streams, else
// entry 3's own state; entry 4 takes no part in it.
const unsigned int kAggregatePort = 3;
const unsigned int kFirstExternalEntry = 5;

struct StateNotice {
    unsigned int tick;
    unsigned int number;
    unsigned int state;
};

StateNotice ReadNotice(const unsigned char* data) {
    StateNotice notice{0, 0, 0};
    std::memcpy(&notice.tick, data, 4);
    std::memcpy(&notice.number, data + 4, 4);
    std::memcpy(&notice.state, data + 8, 4);
    return notice;
}

bool CountsAsActive(e_CameraState state) {
    return state == e_CameraState_Recording || state == e_CameraState_Streaming;
}

// The three item handlers share one name in their null-payload line.
HandlerTexts CameraTexts(const char* entry) {
    return HandlerTexts{entry, "CameraStateChangedHandler", 64};
}
}  // namespace

void MetadataMgr::ReportVideoStreamState(unsigned int stream, e_StreamState state,
                                         unsigned int tick, bool report) {
    if (stream > kHighestNumber) {
        MM_LOG(1) << "VideoStreamStateChanged: Invalid streamNo " << stream;
        return;
    }
    dataStore.ReportVideoStreamState(static_cast<e_VideoStream>(stream), state, report, tick);
}

void MetadataMgr::ReportCameraState(unsigned int camera, e_CameraState state, unsigned int tick,
                                    bool report) {
    if (camera > kHighestNumber) {
        MM_LOG(1) << "CameraStateChanged: Invalid camera no " << camera;
        return;
    }
    dataStore.ReportCameraState(static_cast<e_CameraPort>(camera), state, report, tick);
}

void MetadataMgr::ReportCameraItem(VideoMgrCameraItem& item, bool report) {
    for (unsigned int port = 0; port < kAggregatePort; ++port) {
        ReportCameraState(port, item.cameraState[port], item.tick, report);
    }
    e_CameraState aggregate = item.cameraState[kAggregatePort];
    for (unsigned int entry = kFirstExternalEntry; entry < VideoMgrCameraItem::kEntries; ++entry) {
        if (CountsAsActive(item.cameraState[entry])) {
            aggregate = item.cameraState[entry];
        }
    }
    ReportCameraState(kAggregatePort, aggregate, item.tick, report);
}

void MetadataMgr::ReportStreamQualityItem(VideoMgrStreamQualityItem& item, bool report) {
    dataStore.ReportStreamQualityItem(item, report);
}

void MetadataMgr::VideoStreamStateChangeHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, Named("VideoStreamStateChangeHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        if (!payload::Holds(msg, kStateNoticeSize)) {
                            return false;
                        }
                        const StateNotice notice = ReadNotice(msg.DataPtr());
                        mgr.ReportVideoStreamState(notice.number,
                                                   static_cast<e_StreamState>(notice.state),
                                                   notice.tick, true);
                        return true;
                    });
}

void MetadataMgr::CliCameraStateChangedHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, CameraTexts("CliCameraStateChangedHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        if (!payload::Holds(msg, kStateNoticeSize)) {
                            return false;
                        }
                        const StateNotice notice = ReadNotice(msg.DataPtr());
                        mgr.ReportCameraState(notice.number,
                                              static_cast<e_CameraState>(notice.state), notice.tick,
                                              true);
                        return true;
                    });
}

void MetadataMgr::VideoMgrCameraItemHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, CameraTexts("VideoMgrCameraItemHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        VideoMgrCameraItem item;
                        if (!payload::DecodeFromData(msg, item)) {
                            return false;
                        }
                        mgr.ReportCameraItem(item, true);
                        return true;
                    });
}

void MetadataMgr::VideoMgrStreamQualityItemHandler(LinxIpc* ipc, void* context) {
    RunEventHandler(ipc, context, CameraTexts("VideoMgrStreamQualityItemHandler"),
                    [](MetadataMgr& mgr, IpcMessage& msg) {
                        VideoMgrStreamQualityItem item;
                        if (!payload::DecodeFromData(msg, item)) {
                            return false;
                        }
                        mgr.ReportStreamQualityItem(item, true);
                        return true;
                    });
}

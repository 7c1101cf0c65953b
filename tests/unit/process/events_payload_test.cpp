// Hostile input: every handler drops an empty or short payload with one line and no record.
#include <gtest/gtest.h>

#include "events_support.h"

namespace {
struct HandlerCase {
    LinxHandler handler;
    const char* nullName;    // the name in its null-payload line
    unsigned int shortSize;  // a payload one byte short of its layout
};

const HandlerCase kHandlers[] = {
    {MetadataMgr::RecordStartHandler, "RecordStartHandler", 3},
    {MetadataMgr::RecordStopHandler, "RecordStopHandler", 3},
    {MetadataMgr::EnterCovertModeHandler, "EnterCovertModeHandler", 3},
    {MetadataMgr::ExitCovertModeHandler, "ExitCovertModeHandler", 3},
    {MetadataMgr::RecordStartStopHandler, "RecordStartStopHandler", 4},
    {MetadataMgr::BookmarkHandler, "BookmarkHandler", 3},
    {MetadataMgr::ExternalInputEventHandler, "ExternalInputEventHandler", 15},
    {MetadataMgr::GpsStatusEventHandler, "GpsStatusEventHandler", 0x8B},
    {MetadataMgr::RadarEventHandler, "RadarEventHandler", 0x2B},
    {MetadataMgr::MicStateChangedHandler, "MicStateChangedHandler", 9},
    {MetadataMgr::MicMgrStatusHandler, "MicMgrStatusHandler", 7},
    {MetadataMgr::TempChangeHandler, "TempChangeHandler", 0x4B},
    {MetadataMgr::CrashDetectHandler, "CrashDetectHandler", 7},
    {MetadataMgr::VideoStreamStateChangeHandler, "VideoStreamStateChangeHandler", 11},
    {MetadataMgr::CliCameraStateChangedHandler, "CameraStateChangedHandler", 11},
    {MetadataMgr::VideoMgrCameraItemHandler, "CameraStateChangedHandler", 39},
    {MetadataMgr::VideoMgrStreamQualityItemHandler, "CameraStateChangedHandler", 51},
    {MetadataMgr::LVSStateChangeHandler_0, "LVSStateChangeHandler", 5},
    {MetadataMgr::LVSStateChangeHandler_5, "LVSStateChangeHandler", 1},
    {MetadataMgr::VehicleInfoChangedHandler, "VehicleInfoChangedHandler", 2},
    {MetadataMgr::OfficerChangedHandler, "OfficerChangedHandler", 1},
    {MetadataMgr::DeptInfoChangedHandler, "DeptInfoChangedHandler", 1},
    {MetadataMgr::SystemInfoChangedHandler, "SystemInfoChangedHandler", 1},
    {MetadataMgr::VideoRecordingSettingsChangedHandler, "VideoRecordingSettingsChangedHandler", 8},
    {MetadataMgr::MetadataToFileHandler, "MetadataToFileHandler", 1031},
};
}  // namespace

TEST(EventsPayload, EmptyAndShortPayloadsAreLoggedAndDropped) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    unsigned int id = 40100;
    for (const HandlerCase& c : kHandlers) {
        const std::string name = c.nullName;
        events::Bind(h, c.handler, id);
        LogCapture log(h.env.Path("log.txt"), 2);
        ASSERT_TRUE(h.Deliver(id, nullptr, 0)) << name;
        // Non-zero bytes, so no field of a short payload reads as a valid zero by chance.
        events::Payload shortPayload;
        shortPayload.Bytes().assign(c.shortSize, 0x01);
        ASSERT_TRUE(events::Send(h, shortPayload, id++)) << name;
        EXPECT_EQ(1u, log.Count(" " + name + ": error, DataPtr is null\n")) << log.Text();
        EXPECT_EQ(1u, log.Count(" " + name + ": error, payload too short")) << log.Text();
        EXPECT_EQ(2u, log.Count("\n")) << log.Text();
    }
    // Nothing but the store's own records (the segment's opening snapshot and the closing
    // record); no metadata-to-file answer either.
    EXPECT_EQ((std::vector<std::string>{"WriteFullState", "ShutdownData"}),
              Brief(h.Records(), {}, {}));
    IpcMessage answer;
    EXPECT_FALSE(h.PeerReceive(answer, events::kMetadataToFileResponse, 100));
}

// Hostile input: every handler drops an empty or short payload with one line and no record.
#include <gtest/gtest.h>

#include <set>

#include "events_support.h"

using events::Payload;

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

// Ops of records the event paths write; none may appear.
const std::set<std::string> kEventOps = {
    "ReportStateData",   "ReportBookmark",
    "ReportGpsState",    "ReportGps",
    "ReportSpeed",       "ReportValidSpeed",
    "ReportRadarState",  "ReportRadar",
    "ReportMicPresent",  "ReportMicState",
    "ReportTemp",        "ReportVideoStreamState",
    "ReportCameraState", "ReportStreamQualityItem",
    "ReportLvsState",    "ReportVehicleInfo",
    "ReportOfficerInfo", "ReportDepartmentInfo",
    "ReportSystemInfo",  "ReportVideoRecordingSettings",
};
}  // namespace

TEST(EventsPayload, EmptyAndShortPayloadsAreLoggedAndDropped) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    unsigned int id = 40100;
    for (const HandlerCase& c : kHandlers) {
        events::Bind(h, c.handler, id);
        std::string text;
        {
            events::LogCapture log(h.env.Path("log.txt"), 2);
            ASSERT_TRUE(h.Deliver(id, nullptr, 0)) << c.nullName;
            // Non-zero bytes, so no field of a short payload reads as a valid zero by chance.
            Payload shortPayload;
            shortPayload.Bytes().assign(c.shortSize, 0x01);
            ASSERT_TRUE(events::Send(h, shortPayload, id)) << c.nullName;
            text = log.Text();
        }
        const std::string name = c.nullName;
        EXPECT_EQ(1u, events::Count(text, " " + name + ": error, DataPtr is null\n"))
            << name << "\n"
            << text;
        EXPECT_EQ(1u, events::Count(text, " " + name + ": error, payload too short")) << text;
        EXPECT_EQ(2u, events::Count(text, "\n")) << name << "\n" << text;
        ++id;
    }
    for (const StoreRecord& r : h.Records()) {
        EXPECT_EQ(0u, kEventOps.count(r.Op())) << r.line;
    }
}

TEST(EventsPayload, LevelZeroLogsNothingButStillReports) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    std::string text;
    {
        events::LogCapture log(h.env.Path("log.txt"), 0);
        ASSERT_TRUE(events::Send(h, Payload().Add(55u), events::kBookmark));
        ASSERT_TRUE(h.Deliver(events::kBookmark, nullptr, 0));
        text = log.Text();
    }
    EXPECT_EQ("", text);
    EXPECT_EQ(1u, h.RecordsOf("ReportBookmark").size());
}

// Configuration records: every change is stored as an event, the latest one last.
#include <gtest/gtest.h>

#include "events_support.h"

using events::Encoded;

TEST(EventsConfig, EachChangeIsStoredWithTheEventFlag) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::VehicleInfoChangedHandler, 40001);
    events::Bind(h, MetadataMgr::OfficerChangedHandler, 40002);
    events::Bind(h, MetadataMgr::DeptInfoChangedHandler, 40003);
    events::Bind(h, MetadataMgr::SystemInfoChangedHandler, 40004);
    events::Bind(h, MetadataMgr::VideoRecordingSettingsChangedHandler, 40005);
    // Each record is its member items back to back.
    const std::pair<unsigned int, events::Payload> sent[] = {
        {40002, Encoded(StringItem("A-17"), StringItem("Smith"))},
        {40002, Encoded(StringItem("A-17"), StringItem("Jones"))},
        {40001, Encoded(StringItem("CAR 54"), StringItem(), StringItem())},
        {40003, Encoded(StringItem(), StringItem("Traffic"))},
        {40004, Encoded(StringItem(), StringItem("U-9"))},
        {40005, Encoded(UShortItem(30), UShortItem(), UShortItem(), UShortItem(), BoolItem())},
    };
    for (const auto& s : sent) {
        ASSERT_TRUE(events::Send(h, s.second, s.first));
    }
    const std::vector<std::string> expected = {
        "OfficerInfo Smith A-17 true", "OfficerInfo Jones A-17 true",
        "VehicleInfo CAR 54 true",     "DepartmentInfo Traffic true",
        "SystemInfo U-9 true",         "VideoRecordingSettings 30 true",
    };
    EXPECT_EQ(expected, Brief(h.Records(),
                              {"ReportOfficerInfo", "ReportVehicleInfo", "ReportDepartmentInfo",
                               "ReportSystemInfo", "ReportVideoRecordingSettings"},
                              {"item.name", "item.officerId", "item.vehicleId", "item.unitNumber",
                               "item.preEventSeconds", "flag"}));
}

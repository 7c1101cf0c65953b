// Configuration records: every change is stored as an event, the latest one last.
#include <gtest/gtest.h>

#include "events_support.h"

TEST(EventsConfig, EachChangeIsStoredWithTheEventFlag) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::VehicleInfoChangedHandler, 40001);
    events::Bind(h, MetadataMgr::OfficerChangedHandler, 40002);
    events::Bind(h, MetadataMgr::DeptInfoChangedHandler, 40003);
    events::Bind(h, MetadataMgr::SystemInfoChangedHandler, 40004);
    events::Bind(h, MetadataMgr::VideoRecordingSettingsChangedHandler, 40005);

    Officer officer;
    officer.officerId.Set("A-17");
    officer.name.Set("Smith");
    ASSERT_TRUE(h.DeliverItem(40002, officer));
    officer.name.Set("Jones");
    ASSERT_TRUE(h.DeliverItem(40002, officer));
    VehicleInfo vehicle;
    vehicle.vehicleId.Set("CAR 54");
    ASSERT_TRUE(h.DeliverItem(40001, vehicle));
    DepartmentInfo department;
    department.name.Set("Traffic");
    ASSERT_TRUE(h.DeliverItem(40003, department));
    SystemInfo system;
    system.unitNumber.Set("U-9");
    ASSERT_TRUE(h.DeliverItem(40004, system));
    VideoRecordingSettings settings;
    settings.preEventSeconds.Set(30);
    ASSERT_TRUE(h.DeliverItem(40005, settings));

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

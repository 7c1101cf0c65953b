// Configuration records: every change is stored as an event, the latest one last.
#include <gtest/gtest.h>

#include "events_support.h"

namespace {
const unsigned int kVehicle = 40001;
const unsigned int kOfficer = 40002;
const unsigned int kDepartment = 40003;
const unsigned int kSystem = 40004;
const unsigned int kRecording = 40005;
}  // namespace

TEST(EventsConfig, EachChangeIsStoredWithTheEventFlag) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    events::Bind(h, MetadataMgr::VehicleInfoChangedHandler, kVehicle);
    events::Bind(h, MetadataMgr::OfficerChangedHandler, kOfficer);
    events::Bind(h, MetadataMgr::DeptInfoChangedHandler, kDepartment);
    events::Bind(h, MetadataMgr::SystemInfoChangedHandler, kSystem);
    events::Bind(h, MetadataMgr::VideoRecordingSettingsChangedHandler, kRecording);

    Officer officer;
    officer.officerId.Set("A-17");
    officer.name.Set("Smith");
    ASSERT_TRUE(h.DeliverItem(kOfficer, officer));
    officer.name.Set("Jones");
    ASSERT_TRUE(h.DeliverItem(kOfficer, officer));

    VehicleInfo vehicle;
    vehicle.vehicleId.Set("CAR 54");
    ASSERT_TRUE(h.DeliverItem(kVehicle, vehicle));
    DepartmentInfo department;
    department.name.Set("Traffic");
    ASSERT_TRUE(h.DeliverItem(kDepartment, department));
    SystemInfo system;
    system.unitNumber.Set("U-9");
    ASSERT_TRUE(h.DeliverItem(kSystem, system));
    VideoRecordingSettings settings;
    settings.preEventSeconds.Set(30);
    settings.recordAudio.Set(true);
    ASSERT_TRUE(h.DeliverItem(kRecording, settings));

    const std::vector<StoreRecord> records = h.Records();
    const std::vector<StoreRecord> officers = WithOp(records, "ReportOfficerInfo");
    ASSERT_EQ(2u, officers.size());
    EXPECT_EQ("Smith", officers[0].Get("item.name"));
    EXPECT_EQ("Jones", officers[1].Get("item.name"));
    EXPECT_EQ("A-17", officers[1].Get("item.officerId"));
    for (const char* op : {"ReportOfficerInfo", "ReportVehicleInfo", "ReportDepartmentInfo",
                           "ReportSystemInfo", "ReportVideoRecordingSettings"}) {
        const std::vector<StoreRecord> some = WithOp(records, op);
        ASSERT_FALSE(some.empty()) << op;
        for (const StoreRecord& r : some) {
            EXPECT_EQ("true", r.Get("flag")) << r.line;
        }
    }
    EXPECT_EQ("CAR 54", WithOp(records, "ReportVehicleInfo")[0].Get("item.vehicleId"));
    EXPECT_EQ("Traffic", WithOp(records, "ReportDepartmentInfo")[0].Get("item.name"));
    EXPECT_EQ("U-9", WithOp(records, "ReportSystemInfo")[0].Get("item.unitNumber"));
    EXPECT_EQ(30, WithOp(records, "ReportVideoRecordingSettings")[0].Int("item.preEventSeconds"));
}

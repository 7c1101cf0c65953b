// Environment switches and refused subscriptions during start-up.
#include <gtest/gtest.h>

#include <memory>

#include "HostInspect.h"
#include "ManagerHarness.h"
#include "subs_Vehicle.h"

namespace {

// The servers in the order they are subscribed, with the items each serves.
struct ServerItems {
    e_Process process;
    std::vector<unsigned int> items;
};
const std::vector<ServerItems> kOrder = {
    {e_Process_ConfigMgr, {10, 7, 11, 12, 13}},
    {e_Process_Fpga, {17}},
    {e_Process_GpsHal, {1}},
    {e_Process_StateMgr, {1, 2, 3, 4}},
    {e_Process_RadarHal, {1}},
    {e_Process_MicMgr, {0}},
    {e_Process_VideoMgr, {0, 1}},
    {e_Process_AccelHal, {1}},
    {e_Process_TempHal, {0}},
    {e_Process_ExternalMgr, {16, 17, 18, 19, 20, 21}},
};

bool WatchdogRegistered() {
    hostinspect::WatchdogStatus status;
    return hostinspect::ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status) &&
           status.subscribed;
}

}  // namespace

TEST(SubsSwitches, SwitchesThatRemoveTheClientSkipTheServerEntirely) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    const char* const removed[] = {"NO_CONFIGMGR", "RUN_WITHOUT_STATEMGR", "NO_MICMGR",
                                   "NO_VIDEOMGR",  "NO_ACCELHAL",          "NO_TEMPHAL"};
    std::vector<std::unique_ptr<ScopedEnv>> switches;
    for (const char* name : removed) {
        // Any value counts, even an empty one.
        switches.emplace_back(new ScopedEnv(name, ""));
    }
    Vehicle vehicle;
    ServerFarm farm;
    vehicle.Populate(farm, {e_Process_ConfigMgr, e_Process_StateMgr, e_Process_MicMgr,
                            e_Process_VideoMgr, e_Process_AccelHal, e_Process_TempHal});
    // Only the masks of the lines looked for: "set to ignore" is 32, failures are 1.
    LogCapture log(h.env.Path("log.txt"), 32 | 1);
    farm.Start();
    ASSERT_TRUE(h.manager->SubscribeToServers(h.ipc, false));
    farm.Stop();

    for (e_Process process : {e_Process_ConfigMgr, e_Process_StateMgr, e_Process_MicMgr,
                              e_Process_VideoMgr, e_Process_AccelHal, e_Process_TempHal}) {
        EXPECT_EQ(nullptr, h.manager->ClientOf(process)) << process;
    }
    EXPECT_NE(nullptr, h.manager->ClientOf(e_Process_ExternalMgr));
    EXPECT_EQ(1, log.Lines("SubscribeToConfigMgr - set to ignore ConfigMgr "));
    EXPECT_EQ(1, log.Lines("SubscribeToMicMgr - set to ignore MicMgr "));
    EXPECT_EQ(1, log.Lines("SubscribeToVideoMgr - set to ignore VideoMgr "));
    EXPECT_EQ(1, log.Lines("SubscribeToAccelHal - set to ignore AccelHal "));
    EXPECT_EQ(1, log.Lines("SubscribeToTempHal - set to ignore TempHal "));
    EXPECT_EQ(5, log.Count("set to ignore"));  // the state manager's switch is silent
    EXPECT_FALSE(log.Contains("Failed"));
    EXPECT_TRUE(WatchdogRegistered());

    const std::vector<StoreRecord> records = h.Records();
    // The start-up records are written all the same.
    EXPECT_GE(Find(records, 0, "ReportStateData", "tag", "64"), 0);
    for (const char* op : {"ReportVehicleInfo", "ReportSystemInfo", "ReportDepartmentInfo",
                           "ReportOfficerInfo", "ReportVideoRecordingSettings", "ReportMicPresent",
                           "ReportMicState", "ReportStreamQualityItem", "ReportTemp"}) {
        EXPECT_EQ(-1, Find(records, 0, op)) << op;
    }
    EXPECT_EQ(-1, Find(records, 0, "ReportStateData", "tag", "66"));
    EXPECT_EQ(-1, Find(records, 0, "ReportStateData", "tag", "67"));
    EXPECT_GE(Find(records, 0, "ReportGpsState", "flag", "false"), 0);
    EXPECT_EQ("WriteFullState/call", LastOp(records));
}

TEST(SubsSwitches, SwitchesThatKeepTheClientStillReportADefaultItem) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    ScopedEnv noFpga("NO_FPGA", "0");
    ScopedEnv noGps("NO_GPSHAL", "1");
    ScopedEnv noRadar("NO_RADARHAL", "yes");
    Vehicle vehicle;
    ServerFarm farm;
    // The servers are there; the manager must not ask them.
    vehicle.Populate(farm);
    LogCapture log(h.env.Path("log.txt"));
    farm.Start();
    ASSERT_TRUE(h.manager->SubscribeToServers(h.ipc, false));
    farm.Stop();

    for (e_Process process : {e_Process_Fpga, e_Process_GpsHal, e_Process_RadarHal}) {
        SubscribeClient* client = h.manager->ClientOf(process);
        ASSERT_NE(nullptr, client) << process;
        EXPECT_EQ(0u, client->SubscriptionCount()) << process;
    }
    EXPECT_EQ(0u, farm.Find(e_Process_Fpga)->SubscriberCount(17));
    EXPECT_EQ(0u, farm.Find(e_Process_GpsHal)->SubscriberCount(1));
    EXPECT_EQ(0u, farm.Find(e_Process_RadarHal)->SubscriberCount(1));
    EXPECT_EQ(1u, farm.Find(e_Process_MicMgr)->SubscriberCount(0));
    EXPECT_FALSE(log.Contains("set to ignore"));

    const std::vector<StoreRecord> records = h.Records();
    // Every input of a default item once, all off.
    EXPECT_EQ(std::set<long long>({53, 55, 57, 61, 63, 69}), TagsWithFlag(records, "false"));
    // A default GPS item has no fix; a default radar item is a valid reading of zeros.
    const int gps = Find(records, 0, "ReportGpsState", "flag", "false");
    ASSERT_GE(gps, 0);
    EXPECT_EQ("false", records[gps].Get("valid"));
    EXPECT_GE(Find(records, gps, "ReportValidSpeed", "source", "1"), 0);
    const int radar = Find(records, 0, "ReportRadarState", "flag", "false");
    ASSERT_GE(radar, 0);
    EXPECT_EQ("true", records[radar].Get("valid"));
    EXPECT_EQ("WriteFullState/call", LastOp(records));
}

TEST(SubsSwitches, RefusalStopsTheStartUpAtThatServerWithBothMessages) {
    struct Refusal {
        e_Process process;
        unsigned int itemId;
        const char* own;   // the server operation's message
        const char* step;  // the start-up's message
    };
    const Refusal refusals[] = {
        {e_Process_ConfigMgr, 11, "MetadataMgr - Failed to subscribe to DepartmentInfo",
         "MetadataMgr - Failed to subscribe to ConfigMgr"},
        {e_Process_Fpga, 17, "MetadataMgr - Failed to subscribe to External Events",
         "MetadataMgr - Failed to subscribe to External Events"},
        {e_Process_StateMgr, StateMgrClient::kEnterCovertModeItem,
         "MetadataMgr - Failed to subscribe to StateMgr Enter Covert Mode Event",
         "MetadataMgr - Failed to subscribe to StateMgr Events"},
        {e_Process_VideoMgr, 1, "Failed to subscribe to Video Mgr Events",
         "MetadataMgr - Failed to subscribe to VideoMgr Events"},
        {e_Process_AccelHal, 1, "Failed to subscribe to Mic Mgr Events",
         "MetadataMgr - Failed to subscribe to Accelerometer Events"},
        {e_Process_TempHal, 0, "Failed to subscribe to TempHal Events",
         "MetadataMgr::SubscribeToServers - Failed to subscribe to TempHal Events"},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.own);
        ManagerHarness h;
        ASSERT_TRUE(h.Prepare());
        Vehicle vehicle;
        ServerFarm farm;
        vehicle.Populate(farm);
        farm.Find(refusal.process)->Refuse(refusal.itemId);
        LogCapture log(h.env.Path("log.txt"), 1);
        farm.Start();
        EXPECT_FALSE(h.manager->SubscribeToServers(h.ipc, false));
        farm.Stop();

        const bool sameText = std::string(refusal.own) == refusal.step;
        EXPECT_EQ(sameText ? 2 : 1, log.Lines(refusal.own));
        EXPECT_EQ(sameText ? 2 : 1, log.Lines(refusal.step));
        EXPECT_EQ(2, log.Count("Failed"));
        // The servers after the refusing one are left untouched.
        bool after = false;
        for (const ServerItems& server : kOrder) {
            if (after) {
                EXPECT_EQ(nullptr, h.manager->ClientOf(server.process)) << server.process;
                for (unsigned int item : server.items) {
                    EXPECT_EQ(0u, farm.Find(server.process)->SubscriberCount(item));
                }
            }
            after = after || server.process == refusal.process;
        }
        // The refusing server's client stays for a later attempt.
        EXPECT_NE(nullptr, h.manager->ClientOf(refusal.process));
        EXPECT_FALSE(WatchdogRegistered());

        const std::vector<StoreRecord> records = h.Records();
        if (refusal.process == e_Process_ConfigMgr) {
            // No configuration value goes out unless all five were given, and the start-up
            // records wait for the configuration.
            EXPECT_EQ(-1, Find(records, 0, "ReportVehicleInfo"));
            EXPECT_EQ(-1, Find(records, 0, "ReportStateData", "tag", "64"));
        }
        if (refusal.process == e_Process_VideoMgr) {
            // The camera subscription held, but neither value is stored.
            EXPECT_EQ(1u, farm.Find(e_Process_VideoMgr)->SubscriberCount(0));
            EXPECT_EQ(-1, Find(records, 0, "ReportCameraState"));
            EXPECT_EQ(-1, Find(records, 0, "ReportStreamQualityItem"));
        }
    }
}

TEST(SubsSwitches, ExternalManagerRefusingStreamThreeLeavesTheLaterStreamsUnasked) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Vehicle vehicle;
    ServerFarm farm;
    vehicle.Populate(farm);
    ItemServer& external = *farm.Find(e_Process_ExternalMgr);
    external.Refuse(19);
    LogCapture log(h.env.Path("log.txt"), 1);
    farm.Start();
    EXPECT_FALSE(h.manager->SubscribeToServers(h.ipc, false));
    farm.Stop();

    for (unsigned int item = 16; item <= 18; ++item) {
        EXPECT_EQ(1u, external.SubscriberCount(item)) << item;
    }
    for (unsigned int item = 19; item <= 21; ++item) {
        EXPECT_EQ(0u, external.SubscriberCount(item)) << item;
    }
    EXPECT_EQ(1, log.Lines("Failed to subscribe to ExternalMgr LVS state changes"));
    EXPECT_EQ(1, log.Lines("MetadataMgr - Failed to subscribe to LVS state changes"));
    EXPECT_FALSE(WatchdogRegistered());
}

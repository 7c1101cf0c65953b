// Start-up subscriptions against servers played by the test through the real protocol.
#include <gtest/gtest.h>

#include "HostInspect.h"
#include "ManagerHarness.h"
#include "subs_Vehicle.h"

TEST(SubsStartup, EveryServerSubscribedInOrderWithInitialValuesAndFullStateLast) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Vehicle vehicle;
    ServerFarm farm;
    vehicle.Populate(farm);
    farm.Start();
    ASSERT_TRUE(h.manager->SubscribeToServers(h.ipc, true));
    farm.Stop();

    // Every notification id of the table reaches the manager's endpoint for its item.
    struct Notice {
        e_Process process;
        unsigned int itemId;
        unsigned int notifyId;
        Item& value;
    };
    const Notice notices[] = {
        {e_Process_ConfigMgr, 10, 13492, vehicle.vehicle},
        {e_Process_ConfigMgr, 7, 13493, vehicle.system},
        {e_Process_ConfigMgr, 11, 13494, vehicle.department},
        {e_Process_ConfigMgr, 12, 13495, vehicle.officer},
        {e_Process_ConfigMgr, 13, 13496, vehicle.recording},
        {e_Process_Fpga, 17, 13497, vehicle.inputs},
        {e_Process_GpsHal, 1, 13504, vehicle.gps},
        {e_Process_StateMgr, StateMgrClient::kRecordStartItem, 13505, vehicle.stateEvent},
        {e_Process_StateMgr, StateMgrClient::kRecordStopItem, 13506, vehicle.stateEvent},
        {e_Process_StateMgr, StateMgrClient::kEnterCovertModeItem, 13507, vehicle.stateEvent},
        {e_Process_StateMgr, StateMgrClient::kExitCovertModeItem, 13508, vehicle.stateEvent},
        {e_Process_RadarHal, 1, 13510, vehicle.radar},
        {e_Process_MicMgr, 0, 13511, vehicle.mics},
        {e_Process_AccelHal, 1, 13512, vehicle.crash},
        {e_Process_VideoMgr, 0, 13513, vehicle.cameras},
        {e_Process_VideoMgr, 1, 13514, vehicle.quality},
        {e_Process_TempHal, 0, 13515, vehicle.temps},
        {e_Process_ExternalMgr, 16, 18952, vehicle.stream},
        {e_Process_ExternalMgr, 17, 18953, vehicle.stream},
        {e_Process_ExternalMgr, 18, 18954, vehicle.stream},
        {e_Process_ExternalMgr, 19, 18955, vehicle.stream},
        {e_Process_ExternalMgr, 20, 18956, vehicle.stream},
        {e_Process_ExternalMgr, 21, 18957, vehicle.stream},
    };
    for (const Notice& n : notices) {
        SCOPED_TRACE(n.notifyId);
        ItemServer* server = farm.Find(n.process);
        ASSERT_NE(nullptr, server);
        EXPECT_EQ(1u, server->SubscriberCount(n.itemId));
        EXPECT_EQ(1, server->NotifySubscribers(n.itemId, n.value));
        IpcMessage received;
        EXPECT_EQ(0, h.ipc.Receive(2000, n.notifyId, LinxIpc::emptyString, &received));
    }

    hostinspect::WatchdogStatus watchdog;
    ASSERT_TRUE(hostinspect::ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, watchdog));
    EXPECT_TRUE(watchdog.subscribed);
    EXPECT_EQ(45u, watchdog.timeoutSeconds);

    const std::vector<StoreRecord> records = h.Records();
    // The configuration comes first, before the start-up records, in the table's order.
    int at = Find(records, 0, "ReportVehicleInfo", "flag", "false");
    ASSERT_GE(at, 0);
    EXPECT_NE(std::string::npos, records[at].line.find("CAR-17"));
    for (const char* op : {"ReportSystemInfo", "ReportDepartmentInfo", "ReportOfficerInfo",
                           "ReportVideoRecordingSettings"}) {
        at = Find(records, at, op, "flag", "false");
        ASSERT_GE(at, 0) << op;
    }
    EXPECT_LT(at, Find(records, 0, "ReportStateData", "tag", "64"));
    // Every input once, unmarked or not, with the server's levels.
    const int inputs = Find(records, at, "ReportStateData", "flag", "false");
    ASSERT_GE(inputs, 0);
    EXPECT_EQ(std::set<long long>({52, 54, 57, 61, 63, 69}), TagsWithFlag(records, "false"));
    // Then GPS, radar, microphones, cameras and stream quality, crash, temperatures.
    at = Find(records, inputs, "ReportGpsState", "flag", "false");
    ASSERT_GE(at, 0);
    at = Find(records, at, "ReportSpeed", "source", "1");
    ASSERT_GE(at, 0);
    EXPECT_EQ(19, records[at].Int("speed"));
    at = Find(records, at, "ReportRadarState", "flag", "false");
    ASSERT_GE(at, 0);
    at = Find(records, at, "ReportSpeed", "source", "2");
    ASSERT_GE(at, 0);
    EXPECT_EQ(50, records[at].Int("speed"));
    at = Find(records, at, "ReportMicPresent", "mic", "1");
    ASSERT_GE(at, 0);
    EXPECT_EQ("false", records[at].Get("flag"));
    at = Find(records, at, "ReportStreamQualityItem", "flag", "false");
    ASSERT_GE(at, 0);
    // The crash state has no initial flag of its own: it is always stored as an event.
    at = Find(records, at, "ReportStateData", "tag", "66");
    ASSERT_GE(at, 0);
    EXPECT_EQ("true", records[at].Get("flag"));
    EXPECT_EQ(3000, records[at].Int("tick"));
    at = Find(records, at, "ReportTemp", "flag", "false");
    ASSERT_GE(at, 0);
    // No streaming state enters at subscription, and no recording was running.
    EXPECT_EQ(-1, Find(records, 0, "ReportLvsState"));
    EXPECT_EQ(-1, Find(records, 0, "ReportStateData", "tag", "70"));
    ASSERT_FALSE(records.empty());
    EXPECT_EQ("WriteFullState/call", LastOp(records));
    EXPECT_GT(Find(records, at, "WriteFullState", "cause", "call"), at);
}

TEST(SubsStartup, RecordingInProgressIsMarkedOnceBeforeTheFullState) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Vehicle vehicle;
    ServerFarm farm;
    vehicle.Populate(farm);
    farm.SetRecording("REID-0042");
    farm.Start();
    ASSERT_TRUE(h.manager->SubscribeToServers(h.ipc, false));
    farm.Stop();

    const std::vector<StoreRecord> records = h.Records();
    const int marked = Find(records, 0, "ReportStateData", "tag", "70");
    ASSERT_GE(marked, 0);
    EXPECT_EQ("false", records[marked].Get("flag"));
    EXPECT_EQ(0, records[marked].Int("tick"));
    EXPECT_EQ(-1, Find(records, marked + 1, "ReportStateData", "tag", "70"));
    EXPECT_EQ("WriteFullState/call", LastOp(records));
    EXPECT_GT(Find(records, marked, "WriteFullState", "cause", "call"), marked);
}

TEST(SubsStartup, RefusedWatchdogEndsTheStartUpSilently) {
    ManagerHarness h;
    ASSERT_TRUE(h.Prepare());
    Vehicle vehicle;
    ServerFarm farm;
    vehicle.Populate(farm);
    farm.SetRecording("REID-0042");
    ScopedEnv refuse("HOST_WATCHDOG_REFUSE", "1");
    LogCapture log(h.env.Path("log.txt"));
    farm.Start();
    EXPECT_FALSE(h.manager->SubscribeToServers(h.ipc, false));
    farm.Stop();
    EXPECT_FALSE(log.Contains("Failed to subscribe"));
    // Nothing after the watchdog: no recording mark.
    EXPECT_EQ(-1, Find(h.Records(), 0, "ReportStateData", "tag", "70"));
}

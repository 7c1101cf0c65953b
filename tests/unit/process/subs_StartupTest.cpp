// Start-up subscriptions against servers played by the test through the real protocol: order
// and initial values, environment switches, refusals and the watchdog.
#include <gtest/gtest.h>

#include <memory>

#include "HostInspect.h"
#include "subs_Servers.h"

TEST(SubsStartup, EveryServerSubscribedInOrderWithInitialValuesAndFullStateLast) {
    Rig rig;
    rig.farm.SetRecording("REID-0042");
    ASSERT_TRUE(rig.StartUp());

    // Every notification id of the table reaches the manager's endpoint for its item.
    for (const Vehicle::Row& row : rig.vehicle.rows) {
        SCOPED_TRACE(row.notifyId);
        ItemServer& server = *rig.farm.Find(row.process);
        EXPECT_EQ(1u, server.SubscriberCount(row.itemId));
        EXPECT_EQ(1, server.NotifySubscribers(row.itemId, *row.value));
        IpcMessage received;
        EXPECT_EQ(0, rig.h.ipc.Receive(2000, row.notifyId, LinxIpc::emptyString, &received));
    }
    hostinspect::WatchdogStatus watchdog;
    ASSERT_TRUE(hostinspect::ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, watchdog));
    EXPECT_TRUE(watchdog.subscribed);
    EXPECT_EQ(45u, watchdog.timeoutSeconds);

    // Closing (Cleanup) takes back every subscription from its server, and the watchdog's.
    const std::vector<StoreRecord> records = rig.h.Records();
    rig.farm.Drain();
    for (const Vehicle::Row& row : rig.vehicle.rows) {
        EXPECT_EQ(0u, rig.farm.Find(row.process)->SubscriberCount(row.itemId)) << row.notifyId;
    }
    EXPECT_FALSE(WatchdogRegistered());

    // The configuration with the flag false, then the start-up records (64), every input once
    // with the server's levels though none was marked, GPS and radar with their speeds, the
    // microphone, cameras and stream quality, the crash state (always an event), temperatures,
    // the recording found running, and the full state last. No streaming state enters.
    EXPECT_EQ(
        "WriteFullState open, VehicleInfo CAR-17 false, SystemInfo false, "
        "DepartmentInfo false, OfficerInfo false, VideoRecordingSettings false, "
        "ShutdownDataAtStartup, Mac false, StateData 64 true 0, SystemSerialNum, "
        "Configuration false, StateData 52 false 0, StateData 57 false 0, "
        "StateData 54 false 0, StateData 61 false 0, StateData 63 false 0, "
        "StateData 69 false 0, GpsState false, Gps false 0, Speed 0 1 19 false 0, "
        "RadarState false, Radar 0 false 0, Speed 0 2 50 false 0, MicPresent 1 false 0, "
        "MicState 1 false 0, CameraState false 0, CameraState false 0, CameraState false 0, "
        "CameraState false 0, StreamQualityItem false, StateData 66 true 3000, "
        "Temp false 0, Temp false 0, Temp false 0, Temp false 0, StateData 70 false 0, "
        "WriteFullState call, ShutdownData",
        Joined(
            Brief(records, {},
                  {"item.vehicleId", "tag", "mic", "source", "speed", "flag", "tick", "cause"})));
}

TEST(SubsStartup, RefusedWatchdogEndsTheStartUpSilently) {
    ScopedEnv refuse("HOST_WATCHDOG_REFUSE", "1");
    Rig rig;
    rig.farm.SetRecording("REID-0042");
    LogCapture log(rig.h.env.Path("log.txt"));
    EXPECT_FALSE(rig.StartUp());
    EXPECT_FALSE(log.Contains("Failed to subscribe"));
    // Nothing after the watchdog: no recording mark, no full state.
    const std::string all = Joined(Brief(rig.h.Records(), {}, {"tag", "cause"}));
    EXPECT_EQ(std::string::npos, all.find("StateData 70")) << all;
    EXPECT_EQ(std::string::npos, all.find("WriteFullState call")) << all;
}

// Switches that remove the client skip the server entirely, and only the state manager's is
// silent; switches that keep the client ask nothing of the server (which is there) and report
// a default item: inputs all off, GPS without a fix, radar a valid reading of zeros. Any value
// counts, even an empty one. The start-up records are written all the same, and no recording
// mark when none runs.
TEST(SubsStartup, SwitchesThatRemoveOrKeepTheClient) {
    const std::set<e_Process> removed = {e_Process_ConfigMgr, e_Process_StateMgr,
                                         e_Process_MicMgr,    e_Process_VideoMgr,
                                         e_Process_AccelHal,  e_Process_TempHal};
    const std::set<e_Process> kept = {e_Process_Fpga, e_Process_GpsHal, e_Process_RadarHal};
    std::vector<std::unique_ptr<ScopedEnv>> switches;
    for (const char* name : {"NO_CONFIGMGR", "RUN_WITHOUT_STATEMGR", "NO_MICMGR", "NO_VIDEOMGR",
                             "NO_ACCELHAL", "NO_TEMPHAL", "NO_FPGA", "NO_GPSHAL", "NO_RADARHAL"}) {
        switches.emplace_back(new ScopedEnv(name, name[1] == 'O' ? "" : "0"));
    }
    Rig rig(removed);
    // Only the masks of the lines looked for: "set to ignore" is 32, failures are 1.
    LogCapture log(rig.h.env.Path("log.txt"), 32 | 1);
    ASSERT_TRUE(rig.StartUp());

    for (e_Process process : removed) {
        EXPECT_EQ(nullptr, rig.h.manager->ClientOf(process)) << process;
    }
    for (const Vehicle::Row& row : rig.vehicle.rows) {
        if (kept.count(row.process) != 0) {
            EXPECT_EQ(0u, rig.farm.Find(row.process)->SubscriberCount(row.itemId)) << row.notifyId;
            ASSERT_NE(nullptr, rig.h.manager->ClientOf(row.process));
            EXPECT_EQ(0u, rig.h.manager->ClientOf(row.process)->SubscriptionCount());
        }
    }
    EXPECT_NE(nullptr, rig.h.manager->ClientOf(e_Process_ExternalMgr));
    for (const std::string name : {"ConfigMgr", "MicMgr", "VideoMgr", "AccelHal", "TempHal"}) {
        EXPECT_EQ(1, log.Lines("SubscribeTo" + name + " - set to ignore " + name + " ")) << name;
    }
    EXPECT_EQ(5, log.Count("set to ignore"));
    EXPECT_FALSE(log.Contains("Failed"));
    EXPECT_TRUE(WatchdogRegistered());
    EXPECT_EQ(
        "WriteFullState open, ShutdownDataAtStartup, Mac false, StateData 64 true, "
        "SystemSerialNum, Configuration false, StateData 53 false, StateData 57 false, "
        "StateData 55 false, StateData 61 false, StateData 63 false, StateData 69 false, "
        "GpsState false false, ValidSpeed 1 false, RadarState false true, Radar 0 false, "
        "Speed 0 2 false, "
        "WriteFullState call, ShutdownData",
        Joined(Brief(rig.h.Records(), {}, {"tag", "source", "flag", "valid", "cause"})));
}

// A refusal stops the start-up at that server with the server operation's message and the
// start-up's (both mask 1); every earlier item holds, nothing later is asked, the refusing
// server's client stays for a later attempt, and no watchdog is registered.
TEST(SubsStartup, RefusalStopsTheStartUpAtThatServerWithBothMessages) {
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
        {e_Process_ExternalMgr, 19, "Failed to subscribe to ExternalMgr LVS state changes",
         "MetadataMgr - Failed to subscribe to LVS state changes"},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.own);
        Rig rig;
        rig.farm.Find(refusal.process)->Refuse(refusal.itemId);
        LogCapture log(rig.h.env.Path("log.txt"), 1);
        EXPECT_FALSE(rig.StartUp());

        const unsigned int same = std::string(refusal.own) == refusal.step ? 2 : 1;
        EXPECT_EQ(same, log.Lines(refusal.own));
        EXPECT_EQ(same, log.Lines(refusal.step));
        EXPECT_EQ(2, log.Count("Failed"));
        bool after = false;
        for (const Vehicle::Row& row : rig.vehicle.rows) {
            const bool refused = row.process == refusal.process && row.itemId == refusal.itemId;
            after = after || refused;
            EXPECT_EQ(after ? 0u : 1u, rig.farm.Find(row.process)->SubscriberCount(row.itemId))
                << row.notifyId;
            if (after && row.process != refusal.process) {
                EXPECT_EQ(nullptr, rig.h.manager->ClientOf(row.process)) << row.notifyId;
            }
        }
        EXPECT_NE(nullptr, rig.h.manager->ClientOf(refusal.process));
        EXPECT_FALSE(WatchdogRegistered());

        const std::string all = Joined(Brief(rig.h.Records(), {}, {"tag"}));
        if (refusal.process == e_Process_ConfigMgr) {
            // No configuration value goes out unless all five were given, and the start-up
            // records wait for the configuration.
            EXPECT_EQ(std::string::npos, all.find("VehicleInfo")) << all;
            EXPECT_EQ(std::string::npos, all.find("StateData 64")) << all;
        }
        if (refusal.process == e_Process_VideoMgr) {
            // The camera subscription held, but neither value is stored.
            EXPECT_EQ(std::string::npos, all.find("CameraState")) << all;
            EXPECT_EQ(std::string::npos, all.find("StreamQualityItem")) << all;
        }
    }
}

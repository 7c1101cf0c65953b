// Death and restart of server processes after a full start-up, and reuse of the clients.
#include <gtest/gtest.h>

#include "ManagerHarness.h"
#include "subs_Vehicle.h"

namespace {

// A manager subscribed to every server of `vehicle` (except those listed), servers stopped.
void StartUp(ManagerHarness& h, Vehicle& vehicle, ServerFarm& farm,
             const std::set<e_Process>& absent = {}) {
    ASSERT_TRUE(h.Prepare());
    vehicle.Populate(farm, absent);
    farm.Start();
    ASSERT_TRUE(h.manager->SubscribeToServers(h.ipc, false));
    farm.Stop();
}

}  // namespace

TEST(SubsRestart, RestartedServerGetsEverySubscriptionAgainAndItsNextNoticeArrives) {
    ManagerHarness h;
    Vehicle vehicle;
    ServerFarm farm;
    StartUp(h, vehicle, farm);
    // "Process Restarted" is 64, "Need to resubscribe" 128, a refused renewal 1.
    LogCapture log(h.env.Path("log.txt"), 64 | 128 | 1);

    struct Restart {
        e_Process process;
        const char* notice;
        std::vector<unsigned int> items;
    };
    const Restart restarts[] = {
        {e_Process_ExternalMgr, "Need to resubscribe to ExternalMgr", {16, 17, 18, 19, 20, 21}},
        {e_Process_ConfigMgr, "Need to resubscribe to ConfigMgr", {10, 7, 11, 12, 13}},
        {e_Process_StateMgr, "Need to resubscribe to StateMgr", {1, 2, 3, 4}},
    };
    for (const Restart& restart : restarts) {
        SCOPED_TRACE(restart.notice);
        SubscribeClient* client = h.manager->ClientOf(restart.process);
        // The restarted server has forgotten every subscriber.
        farm.Remove(restart.process);
        ItemServer& fresh = farm.Add(restart.process);
        for (unsigned int item : restart.items) {
            fresh.Serve(item, vehicle.stream);
        }
        farm.Start();
        h.manager->ProcessRestarted(h.ipc, restart.process);
        farm.Stop();
        for (unsigned int item : restart.items) {
            EXPECT_EQ(1u, fresh.SubscriberCount(item)) << item;
        }
        EXPECT_EQ(client, h.manager->ClientOf(restart.process));
        EXPECT_EQ(1, log.Lines(restart.notice));
    }
    EXPECT_EQ(1, log.Lines("Process Restarted 29"));
    EXPECT_EQ(1, log.Lines("Process Restarted 3"));
    EXPECT_EQ(1, log.Lines("Process Restarted 2"));
    EXPECT_FALSE(log.Contains("FAILED"));

    // Stream 3's next notice reaches its handler and the store.
    ASSERT_EQ(1, farm.Find(e_Process_ExternalMgr)->NotifySubscribers(19, vehicle.stream));
    ASSERT_EQ(0, h.ipc.Receive(2000, 18955, LinxIpc::emptyString, nullptr));
    const std::vector<StoreRecord> lvs = WithOp(h.Records(), "ReportLvsState");
    ASSERT_EQ(1u, lvs.size());
    EXPECT_EQ(3, lvs[0].Int("stream"));
    EXPECT_EQ("true", lvs[0].Get("flag"));
}

TEST(SubsRestart, RefusedOrImpossibleRenewalsAreLoggedAndTheProcessGoesOn) {
    ManagerHarness h;
    ScopedEnv noMic("NO_MICMGR", "1");
    Vehicle vehicle;
    ServerFarm farm;
    StartUp(h, vehicle, farm, {e_Process_MicMgr});
    LogCapture log(h.env.Path("log.txt"));

    // Switched off: there is no client to renew.
    h.manager->ProcessRestarted(h.ipc, e_Process_MicMgr);
    EXPECT_EQ(1, log.Lines("Process Restarted 11"));
    EXPECT_EQ(1, log.Lines("Need to resubscribe to MicMgr"));
    EXPECT_EQ(1, log.Lines("MetadataMgr FAILED to resubsribe to a server"));

    // A restart notice for a server that is not back: the renewal is refused, once.
    farm.Remove(e_Process_GpsHal);
    h.manager->ProcessRestarted(h.ipc, e_Process_GpsHal);
    EXPECT_EQ(1, log.Lines("Need to resubscribe to GpsHal"));
    EXPECT_EQ(2, log.Count("FAILED"));

    // A process this manager holds nothing from: only the entry line.
    h.manager->ProcessRestarted(h.ipc, e_Process_UiMgr);
    h.manager->ProcessRestarted(h.ipc, static_cast<e_Process>(40));
    EXPECT_EQ(1, log.Lines("Process Restarted 5"));
    EXPECT_EQ(1, log.Lines("Process Restarted 40"));
    EXPECT_EQ(2, log.Count("Need to resubscribe"));
    EXPECT_EQ(2, log.Count("FAILED"));
}

TEST(SubsRestart, DeathChangesNothing) {
    ManagerHarness h;
    Vehicle vehicle;
    ServerFarm farm;
    StartUp(h, vehicle, farm);
    SubscribeClient* video = h.manager->ClientOf(e_Process_VideoMgr);
    LogCapture log(h.env.Path("log.txt"));

    h.manager->ProcessDied(h.ipc, e_Process_VideoMgr);
    EXPECT_EQ(1, log.Lines("Process Died 21"));
    EXPECT_EQ(video, h.manager->ClientOf(e_Process_VideoMgr));
    EXPECT_EQ(2u, video->SubscriptionCount());
    EXPECT_EQ(1u, farm.Find(e_Process_VideoMgr)->SubscriberCount(0));
    EXPECT_EQ(1u, farm.Find(e_Process_VideoMgr)->SubscriberCount(1));
    // Nothing was sent to the server and nothing stored after the start-up's full state.
    IpcMessage anything;
    EXPECT_NE(
        0, farm.EndpointOf(e_Process_VideoMgr)->Receive(100, 0, LinxIpc::emptyString, &anything));
    EXPECT_EQ("WriteFullState/call", LastOp(h.Records()));
}

TEST(SubsRestart, RepeatedSubscribeCallsReuseTheClient) {
    ManagerHarness h;
    Vehicle vehicle;
    ServerFarm farm;
    StartUp(h, vehicle, farm);
    const e_Process servers[] = {e_Process_ConfigMgr,  e_Process_Fpga,     e_Process_GpsHal,
                                 e_Process_StateMgr,   e_Process_RadarHal, e_Process_MicMgr,
                                 e_Process_VideoMgr,   e_Process_AccelHal, e_Process_TempHal,
                                 e_Process_ExternalMgr};
    std::vector<SubscribeClient*> clients;
    for (e_Process process : servers) {
        clients.push_back(h.manager->ClientOf(process));
        EXPECT_NE(nullptr, clients.back()) << process;
    }
    farm.Start();
    EXPECT_TRUE(h.manager->SubscribeToConfigMgr(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToFpga(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToGpsHal(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToStateMgr(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToRadarHal(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToMicMgr(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToVideoMgr(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToAccelHal(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToTempHal(h.ipc));
    EXPECT_TRUE(h.manager->SubscribeToExternalMgr(h.ipc));
    farm.Stop();
    for (std::size_t i = 0; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i], h.manager->ClientOf(servers[i])) << servers[i];
    }
}

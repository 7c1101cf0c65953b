// Death and restart of server processes after a full start-up, and reuse of the clients.
#include <gtest/gtest.h>

#include <map>

#include "subs_Servers.h"

// Subscribing again reuses every client, and so does the renewal after a restart.
TEST(SubsRestart, RestartedServerGetsEverySubscriptionAgainAndItsNextNoticeArrives) {
    Rig rig;
    ASSERT_TRUE(rig.StartUp());
    std::map<e_Process, SubscribeClient*> clients;
    for (const Vehicle::Row& row : rig.vehicle.rows) {
        clients[row.process] = rig.h.manager->ClientOf(row.process);
        EXPECT_NE(nullptr, clients[row.process]) << row.process;
    }
    EXPECT_TRUE(rig.StartUp());
    // "Process Restarted" is 64, "Need to resubscribe" 128, a refused renewal 1.
    LogCapture log(rig.h.env.Path("log.txt"), 64 | 128 | 1);
    const struct {
        e_Process process;
        const char* entry;
        const char* notice;
    } restarts[] = {
        {e_Process_ExternalMgr, "Process Restarted 29", "Need to resubscribe to ExternalMgr"},
        {e_Process_ConfigMgr, "Process Restarted 3", "Need to resubscribe to ConfigMgr"},
        {e_Process_StateMgr, "Process Restarted 2", "Need to resubscribe to StateMgr"},
    };
    for (const auto& restart : restarts) {
        SCOPED_TRACE(restart.notice);
        // The restarted server has forgotten every subscriber.
        rig.farm.Remove(restart.process);
        ItemServer& fresh = rig.farm.Add(restart.process);
        rig.vehicle.Populate(rig.farm);
        rig.farm.Start();
        rig.h.manager->ProcessRestarted(rig.h.ipc, restart.process);
        rig.farm.Stop();
        for (const Vehicle::Row& row : rig.vehicle.rows) {
            if (row.process == restart.process) {
                EXPECT_EQ(1u, fresh.SubscriberCount(row.itemId)) << row.itemId;
            }
        }
        EXPECT_EQ(1, log.Lines(restart.entry));
        EXPECT_EQ(1, log.Lines(restart.notice));
    }
    EXPECT_FALSE(log.Contains("FAILED"));
    for (const auto& client : clients) {
        EXPECT_EQ(client.second, rig.h.manager->ClientOf(client.first)) << client.first;
    }

    // Stream 3's next notice reaches its handler and the store.
    ASSERT_EQ(1, rig.farm.Find(e_Process_ExternalMgr)->NotifySubscribers(19, rig.vehicle.stream));
    ASSERT_EQ(0, rig.h.ipc.Receive(2000, 18955, LinxIpc::emptyString, nullptr));
    EXPECT_EQ((std::vector<std::string>{"LvsState 3 true"}),
              Brief(rig.h.Records(), {"ReportLvsState"}, {"stream", "flag"}));
}

// A death changes nothing; renewals that are refused or impossible are logged and the process
// goes on.
TEST(SubsRestart, DeathChangesNothingAndFailedRenewalsAreLogged) {
    ScopedEnv noMic("NO_MICMGR", "1");
    Rig rig({e_Process_MicMgr});
    ASSERT_TRUE(rig.StartUp());
    SubscribeClient* video = rig.h.manager->ClientOf(e_Process_VideoMgr);
    LogCapture log(rig.h.env.Path("log.txt"));
    // The servers answer, so that an unsubscription would show in their counts.
    rig.farm.Start();
    rig.h.manager->ProcessDied(rig.h.ipc, e_Process_VideoMgr);
    rig.farm.Stop();
    EXPECT_EQ(1, log.Lines("Process Died 21"));
    EXPECT_EQ(video, rig.h.manager->ClientOf(e_Process_VideoMgr));
    EXPECT_EQ(2u, video->SubscriptionCount());
    EXPECT_EQ(1u, rig.farm.Find(e_Process_VideoMgr)->SubscriberCount(0));
    EXPECT_EQ(1u, rig.farm.Find(e_Process_VideoMgr)->SubscriberCount(1));

    // Switched off: there is no client to renew.
    rig.h.manager->ProcessRestarted(rig.h.ipc, e_Process_MicMgr);
    EXPECT_EQ(1, log.Lines("Process Restarted 11"));
    EXPECT_EQ(1, log.Lines("Need to resubscribe to MicMgr"));
    EXPECT_EQ(1, log.Lines("MetadataMgr FAILED to resubsribe to a server"));
    // A restart notice for a server that is not back: the renewal is refused, once.
    rig.farm.Remove(e_Process_GpsHal);
    rig.h.manager->ProcessRestarted(rig.h.ipc, e_Process_GpsHal);
    EXPECT_EQ(1, log.Lines("Need to resubscribe to GpsHal"));
    EXPECT_EQ(2, log.Count("FAILED"));
    // A process this manager holds nothing from: only the entry line.
    rig.h.manager->ProcessRestarted(rig.h.ipc, e_Process_UiMgr);
    rig.h.manager->ProcessRestarted(rig.h.ipc, static_cast<e_Process>(40));
    EXPECT_EQ(1, log.Lines("Process Restarted 5"));
    EXPECT_EQ(1, log.Lines("Process Restarted 40"));
    EXPECT_EQ(2, log.Count("Need to resubscribe"));
    EXPECT_EQ(2, log.Count("FAILED"));
    // Nothing stored after the start-up's full state.
    const std::vector<std::string> ops = Brief(rig.h.Records(), {}, {"cause"});
    ASSERT_GE(ops.size(), 2u);
    EXPECT_EQ("WriteFullState call", ops[ops.size() - 2]);
}

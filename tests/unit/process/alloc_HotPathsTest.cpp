// Once warm, the manager's hot paths make no heap allocation: every event handler and request
// received on its endpoint, and every loop pass, through the real endpoints, store and shared
// record of the host platform. Only the dispatching Receive and the pass itself are counted;
// the peer's sends and reads happen outside the window.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "LogClient.h"
#include "MetadataMgrServer.h"
#include "ProcessInitializer.h"
#include "ProcessState.h"
#include "SimulatorDrawLog.h"
#include "alloc_Counter.h"
#include "events_support.h"

using events::Payload;

namespace {
const int kPasses = 40;
const int kWarmLoopPasses = 20;
const int kLoopPasses = kWarmLoopPasses + 400;
const unsigned int kBookmarkNotice = 40900;
const unsigned int kLogLevelSet = 1872;
const unsigned int kLogLevelGet = 1873;
const unsigned int kLogLevelResponse = 1874;

// One message a sender sends, the answer it expects back (0: none), and the allocations its
// receipts made once warm.
struct Delivery {
    std::string name;
    unsigned int id;
    Payload payload;
    unsigned int answer;
    LinxIpc* from;
    unsigned int allocations = 0;
};

// A manager as the loop runs it: prepared, start-up records written, watchdog subscribed.
void Start(ManagerHarness& h) {
    ASSERT_TRUE(h.Prepare());
    h.manager->InitializeStore();
    ASSERT_TRUE(h.manager->GetWatchdog().Subscribe(30));
}

int Draw(void*) {
    static unsigned int state = 12345;
    state = state * 1103515245u + 12345u;
    return static_cast<int>((state >> 16) & 0x7FFF);
}
}  // namespace

TEST(AllocHotPaths, EveryHandlerAndRequestOnceWarm) {
    ManagerHarness h;
    Start(h);
    // The peer follows the bookmark, so a bookmark also notifies a subscriber.
    ASSERT_TRUE(h.Deliver(
        LinxIpc::kSubscribeRequest,
        Payload().Words({MetadataMgrServer::kBookmarkItem, kBookmarkNotice}).bytes.data(), 8));
    IpcMessage reply;
    ASSERT_TRUE(h.PeerReceive(reply, LinxIpc::kSubscribeReply));
    // The log-level requests are answered by the process initializer's handler.
    h.ipc.RegisterHandler(kLogLevelGet, ProcessInitializer<MetadataMgr>::HandleLogLevel,
                          h.manager.get());
    h.ipc.RegisterHandler(kLogLevelSet, ProcessInitializer<MetadataMgr>::HandleLogLevel,
                          h.manager.get());
    // Requesters' names may be longer than a short string holds in place.
    LinxIpc console("DiagnosticsConsoleOfTheWorkshop");
    ASSERT_EQ(0, console.Init());

    std::vector<Delivery> list;
    unsigned int id = 40001;
    for (const events::HandlerCase& c : events::EveryHandler()) {
        if (c.sample.Size() != 0) {  // the copy allocates: see below
            events::Bind(h, c.handler, id);
            const unsigned int answer =
                c.handler == MetadataMgr::BookmarkHandler ? kBookmarkNotice : 0;
            list.push_back({c.name + (" " + std::to_string(id)), id, c.sample, answer, &h.peer});
            ++id;
        }
    }
    for (LinxIpc* from : {&h.peer, &console}) {
        list.push_back({"ping", events::kPing, Payload(), events::kPingResponse, from});
        list.push_back({"last tick", events::kLastSystemTick, Payload(),
                        events::kLastSystemTickResponse, from});
    }
    list.push_back({"log level get", kLogLevelGet, Payload().Add(0u), kLogLevelResponse, &console});
    list.push_back(
        {"log level set", kLogLevelSet, Payload().Add(0xFFFFFFFFu), kLogLevelResponse, &console});

    // `from` sends `p`; the allocations of the manager's receipt, which dispatches it.
    auto received = [&h](unsigned int type, Payload p, LinxIpc& from) {
        IpcMessage message;
        EXPECT_EQ(0, message.Allocate(type, p.Size(), reinterpret_cast<char*>(p.bytes.data())));
        EXPECT_EQ(0, from.Notify(h.ipc.Name(), message, true)) << type;
        int result = -1;
        const unsigned int n = alloc::During(
            [&] { result = h.ipc.Receive(2000, type, LinxIpc::emptyString, nullptr); });
        EXPECT_EQ(0, result) << type;
        return n;
    };
    // Pass -1 warms up; every other pass has every log line on, and lines are built in place.
    for (int pass = -1; pass < kPasses; ++pass) {
        LogCapture log(h.env.Path("log.txt"),
                       pass % 2 == 0 ? LogClient::kDefaultLevel : 0xFFFFFFFFu);
        for (Delivery& d : list) {
            const unsigned int n = received(d.id, d.payload, *d.from);
            d.allocations += pass < 0 ? 0 : n;
            IpcMessage answer;
            EXPECT_TRUE(d.answer == 0 ||
                        d.from->Receive(1000, d.answer, LinxIpc::emptyString, &answer) == 0)
                << d.name;
        }
        // Every sample is well formed: no handler dropped one.
        EXPECT_EQ(0u, log.Count("error")) << log.Text();
    }
    for (const Delivery& d : list) {
        EXPECT_EQ(0u, d.allocations) << d.name << " from " << d.from->Name();
    }
    // The counter does see the platform's allocations: the metadata-to-file copy, the one
    // request allowed to allocate, is counted.
    EXPECT_LT(0u, received(events::kMetadataToFile, events::CopyRequest("copy.mdj", 0, 0xFFFFFFFEu),
                           h.peer));

    // The handlers did their work: every round stored each event.
    const std::vector<StoreRecord> records = h.Records();
    const size_t rounds = kPasses + 1;
    EXPECT_EQ(rounds, WithOp(records, "ReportBookmark").size());
    EXPECT_EQ(rounds, WithOp(records, "ReportOfficerInfo").size());
    EXPECT_EQ(4 * rounds, WithOp(records, "ReportTemp").size());
}

// Every loop pass with the filler forced and the simulator on, its draws logged, so every branch
// of the pass runs.
// After the shutdown a pass reaches neither the store nor the shared record.
TEST(AllocHotPaths, LoopPassForcedAndSimulatedThenNothingAfterShutdown) {
    ScopedEnv force("FORCE_METADATA", "");
    ManagerHarness h;
    ScopedEnv tickFile("HOST_SYSTICK_FILE", h.env.WriteFile("tick", "1000"));
    Start(h);
    gSimulatorMode = true;
    // The draws written down as they are taken, as on a bench.
    const std::string logPath = h.env.Path("draws.log");
    SimulatorDrawLog drawLog;
    drawLog.Start(logPath.c_str(), false, Draw, nullptr);
    h.manager->SetSimulatorDraw(SimulatorDrawLog::Next, &drawLog);
    h.manager->SetSimulatorPassMark(SimulatorDrawLog::Pass, &drawLog);
    // Half a second a pass, so every other pass puts the store's data on disk.
    unsigned int tick = 1000;
    unsigned int allocations = 0;
    for (int pass = 0; pass < kLoopPasses; ++pass) {
        tick += 500;
        h.env.WriteFile("tick", std::to_string(tick));
        const unsigned int n = alloc::During([&] {
            h.manager->PetWatchdog();
            h.manager->PeriodicProcessing();
        });
        allocations += pass < kWarmLoopPasses ? 0 : n;
    }
    EXPECT_EQ(0u, allocations);
    EXPECT_EQ(static_cast<unsigned int>(kLoopPasses), h.manager->GetWatchdog().PetCount());
    h.env.WriteFile("tick", std::to_string(tick + 100));
    EXPECT_EQ(tick, h.manager->GetLastSystemTick()) << "the store's tick, not the live one";

    h.manager->Shutdown(h.ipc);
    EXPECT_TRUE(gShutdownRequested);
    const SharedBlock before;
    h.manager->PeriodicProcessing();
    gSimulatorMode = false;
    EXPECT_EQ(tick, h.manager->GetLastSystemTick());
    EXPECT_EQ(0, std::memcmp(before.bytes, SharedBlock().bytes, sizeof before.bytes));
    const std::vector<StoreRecord> records = h.Records();
    const std::vector<StoreRecord> fillers = WithOp(records, "ReportStringData");
    ASSERT_EQ(static_cast<size_t>(kLoopPasses), fillers.size());
    EXPECT_EQ("Test string for filler " + std::to_string(tick), fillers.back().Get("text"));
    EXPECT_LT(static_cast<size_t>(3 * kLoopPasses), records.size());
    ASSERT_FALSE(records.empty());
    EXPECT_EQ("ReportShutdownData", records.back().Op());
}

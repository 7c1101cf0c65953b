// The metadata manager's real binary among peers that flood it, lie about who they are or never
// read its answers. The test plays the state manager and the external manager on their real
// endpoints; every other server is switched off.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <chrono>
#include <functional>
#include <map>
#include <memory>

#include "Item.h"
#include "ItemServer.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "LogOrder.h"
#include "ServerClients.h"
#include "StoreRecords.h"
#include "StreamingLvsStateItem.h"
#include "Subprocess.h"
#include "Subscribe.h"
#include "TestEnv.h"

namespace {

// The process's bound on its peak memory. The cross build runs it under qemu-ppc, whose own
// memory (about 15 MiB) counts too, and the sanitizer build has its shadow memory and
// allocator (about 5 MiB more); a backlog that grows with the flood passes every bound by tens
// of MiB.
#if defined(__powerpc__) || defined(__SANITIZE_ADDRESS__)
const long kPeakRssKiB = 32 * 1024;
#else
const long kPeakRssKiB = 16 * 1024;
#endif

const std::string& NameOf(e_Process process) {
    return LinxServerNameList::Instance().Name(process);
}

// Everything runs on the test's thread: Pump() receives and dispatches.
class Vehicle {
public:
    Vehicle()
        : stateMgr_(NameOf(e_Process_StateMgr)),
          externalMgr_(NameOf(e_Process_ExternalMgr)),
          stateServer_(stateMgr_),
          externalServer_(externalMgr_) {
        stateMgr_.Init();
        externalMgr_.Init();
        for (unsigned int item = StateMgrClient::kRecordStartItem;
             item <= StateMgrClient::kExitCovertModeItem; ++item) {
            stateServer_.Serve(item, tick_);
        }
        for (unsigned int item = 16; item <= 21; ++item) {
            externalServer_.Serve(item, stream_);
        }
        // Every message the state manager may get from the process under test.
        for (unsigned int type : {13232u, 13234u, 13239u, 13244u, 1874u, 13489u}) {
            stateMgr_.RegisterHandler(type, &Collect, this);
        }
    }

    // Receives and dispatches on both endpoints for `ms`, or until `done` holds (false when it
    // still does not then).
    bool Pump(int ms, const std::function<bool()>& done = nullptr) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        while (!done || !done()) {
            if (std::chrono::steady_clock::now() >= end) {
                return !done;
            }
            stateMgr_.Receive(5, 0, LinxIpc::emptyString, nullptr);
            externalMgr_.Receive(5, 0, LinxIpc::emptyString, nullptr);
        }
        return true;
    }

    // Pumps until a message of `type` reached the state manager and takes it from the inbox.
    bool Expect(unsigned int type, Bytes* payload = nullptr) {
        return Pump(20000, [&] {
            auto it = inbox.find(type);
            if (it == inbox.end()) {
                return false;
            }
            if (payload != nullptr) {
                *payload = it->second;
            }
            inbox.erase(it);
            return true;
        });
    }

    // Sends as the state manager; a process just started may not have opened its endpoint yet.
    bool Send(unsigned int type, Bytes payload = {}) {
        IpcMessage msg;
        char* data = payload.empty() ? nullptr : reinterpret_cast<char*>(payload.data());
        return msg.Allocate(type, payload.size(), data) == 0 && Pump(20000, [&] {
                   return stateMgr_.Notify(NameOf(e_Process_MetadataMgr), msg, true) == 0;
               });
    }

    // Messages that reached the state manager and were not taken yet, by type in arrival order.
    std::multimap<unsigned int, Bytes> inbox;

private:
    static void Collect(LinxIpc* ipc, void* context) {
        IpcMessage& msg = ipc->CurrentMessage();
        const unsigned char* data = msg.DataPtr();
        static_cast<Vehicle*>(context)->inbox.emplace(
            msg.MsgType(), data == nullptr ? Bytes() : Bytes(data, data + msg.Size()));
    }

    LinxIpc stateMgr_;
    LinxIpc externalMgr_;
    SystickItem tick_;
    ExternalMgrApi::StreamingLvsStateItem stream_;
    ItemServer stateServer_;  // the state manager's events and the streams: default items
    ItemServer externalServer_;
};

std::unique_ptr<Subprocess> StartManager(const TestEnv& env, std::vector<std::string> extraEnv = {},
                                         std::vector<std::string> args = {"-l", "255"}) {
    std::vector<std::string> environment{"NO_CONFIGMGR=1", "NO_FPGA=1",   "NO_GPSHAL=1",
                                         "NO_RADARHAL=1",  "NO_MICMGR=1", "NO_VIDEOMGR=1",
                                         "NO_ACCELHAL=1",  "NO_TEMPHAL=1"};
    environment.insert(environment.end(), extraEnv.begin(), extraEnv.end());
    args.insert(args.begin(), ProgramPath("MetadataMgr"));
    auto process = std::make_unique<Subprocess>(args, environment, env.Root());
    process->Start();  // a start that failed shows as the notices that never come
    return process;
}

}  // namespace

// A flood of bookmarks while the process waits for a server that does not answer (a renewal
// after its restart), then the quit: the waiting messages are held back within their bound and
// the rest stays with the sender, every bookmark accepted is stored before the store closes,
// and the process's peak memory stays small.
TEST(ProcessFlood, HeldBehindASilentServerThenQuit) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {}, {"-l", "0"});
    ASSERT_TRUE(vehicle.Expect(13232));
    ASSERT_TRUE(vehicle.Send(13233, {1}));
    ASSERT_TRUE(vehicle.Expect(13234)) << process->Err();
    ASSERT_TRUE(vehicle.Send(13235));
    // The external manager's endpoint is not served from here on: the renewal waits in vain.
    ASSERT_TRUE(vehicle.Send(13236, WordBytes(e_Process_ExternalMgr)));
    LinxIpc flood("Flood");
    ASSERT_EQ(0, flood.Init());
    const unsigned int kBookmarks = 10000;
    unsigned int accepted = 0;
    IpcMessage bookmark;
    for (unsigned int tick = 1; tick <= kBookmarks; ++tick) {
        ASSERT_EQ(0, bookmark.Allocate(13509, sizeof tick, reinterpret_cast<char*>(&tick)));
        accepted += flood.Notify(NameOf(e_Process_MetadataMgr), bookmark, true) == 0 ? 1 : 0;
    }
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
    ASSERT_TRUE(vehicle.Expect(13239));
    const ProgramResult result = process->Wait(60000);
    EXPECT_EQ(0, result.exitCode) << result.err;
    struct rusage usage;
    ASSERT_EQ(0, getrusage(RUSAGE_CHILDREN, &usage));
    EXPECT_LT(usage.ru_maxrss, kPeakRssKiB) << "peak RSS in KiB";
    const std::vector<StoreRecord> records =
        ReadStoreRecords(env.MetadataPath(), env.Root(), {}, nullptr);
    EXPECT_GT(accepted, kBookmarks / 2);
    EXPECT_EQ(accepted, WithOp(records, "ReportBookmark").size());
    ASSERT_FALSE(records.empty());
    EXPECT_EQ("ReportShutdownData", records.back().Op());
}

// Peers that lie or do not listen: notices from anyone but the state manager and a subscription
// under a reserved type are refused and the process runs on; a requester that never reads its
// answers delays the loop once, and the state manager's ping is answered soon after.
TEST(ProcessPeers, ForgedNoticesAndUnreadAnswers) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {"RUN_WITHOUT_STATEMGR=1"});
    ASSERT_TRUE(vehicle.Send(1873, WordBytes(0)));
    ASSERT_TRUE(vehicle.Expect(1874)) << "answered from the loop, once subscribed";
    LinxIpc evil("Evil");
    ASSERT_EQ(0, evil.Init());
    const std::string& manager = NameOf(e_Process_MetadataMgr);
    IpcMessage message;
    const unsigned int request[2] = {0, LinxIpc::kShutdownNotice};  // bookmark item as a quit
    for (const auto& [type, payload] : std::vector<std::pair<unsigned int, Bytes>>{
             {LinxIpc::kShutdownNotice, {}},
             {LinxIpc::kProcessDiedNotice, WordBytes(e_Process_ExternalMgr)},
             {LinxIpc::kSubscribeRequest,
              Bytes(reinterpret_cast<const unsigned char*>(request),
                    reinterpret_cast<const unsigned char*>(request) + sizeof request)}}) {
        Bytes bytes = payload;
        ASSERT_EQ(0, message.Allocate(type, bytes.size(), reinterpret_cast<char*>(bytes.data())));
        ASSERT_TRUE(vehicle.Pump(20000, [&] { return evil.Notify(manager, message, true) == 0; }));
    }
    ASSERT_EQ(0, evil.Receive(20000, LinxIpc::kSubscribeReply, manager, &message));
    ASSERT_EQ(12u, message.Size());
    EXPECT_EQ(WordBytes(1), Bytes(message.DataPtr() + 8, message.DataPtr() + 12)) << "refused";

    LinxIpc sink("Sink");
    ASSERT_EQ(0, sink.Init());
    ASSERT_EQ(0, message.Allocate(13488, 0, nullptr));
    for (int ping = 0; ping < 40; ++ping) {
        sink.Notify(manager, message, true);
    }
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(vehicle.Send(13488));
    ASSERT_TRUE(vehicle.Expect(13489));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));

    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
    const ProgramResult result = process->Wait(20000);
    EXPECT_EQ(0, result.exitCode);
    EXPECT_TRUE(InOrder(result.err, {"dropped a shutdown notice from Evil",
                                     "dropped a process-died notice from Evil",
                                     "Evil asked for item 0 as reserved type", "Ping Handler",
                                     "Sink does not read its queue", "Exiting 0"}));
    EXPECT_EQ(result.err.find("does not read its queue"),
              result.err.rfind("does not read its queue"))
        << "once per episode";
}

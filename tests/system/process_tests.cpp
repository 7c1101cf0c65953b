// The metadata manager through its real binary. The test plays the rest of the vehicle: the
// state manager (handshake, control messages, its record and covert-mode events) and the
// external manager (live streams), each on its real endpoint and served through the real
// subscribe protocol; every other server is switched off.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <memory>

#include "Item.h"
#include "LinxIpc.h"
#include "LinxServerNameList.h"
#include "ServerClients.h"
#include "StoreRecords.h"
#include "StreamingLvsStateItem.h"
#include "Subprocess.h"
#include "Subscribe.h"
#include "TestEnv.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes WordBytes(unsigned int word) {
    Bytes bytes(sizeof word);
    std::memcpy(bytes.data(), &word, sizeof word);
    return bytes;
}

// The process's bound on its peak memory. The cross build runs it under qemu-ppc, whose own
// memory (about 15 MiB) counts too; a backlog that grows with the flood passes either bound by
// tens of MiB.
#if defined(__powerpc__)
const long kPeakRssKiB = 32 * 1024;
#else
const long kPeakRssKiB = 16 * 1024;
#endif

const std::string& NameOf(e_Process process) {
    return LinxServerNameList::Instance().Name(process);
}

// Answers every subscribe request for the item ids first..last with a default ItemT.
template <typename ItemT>
class StubServer : public SubscribeServer {
public:
    StubServer(LinxIpc& ipc, unsigned int first, unsigned int last)
        : SubscribeServer(ipc), first_(first), last_(last) {}
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override {
        const ItemT item;
        if (itemId >= first_ && itemId <= last_ &&
            reply.Allocate(msgType, item.Size(), nullptr) == 0) {
            item.EncodeMsg(reply);
        }
    }

private:
    unsigned int first_, last_;
};

// Everything runs on the test's thread: Pump() receives and dispatches.
class Vehicle {
public:
    Vehicle()
        : stateMgr_(NameOf(e_Process_StateMgr)),
          externalMgr_(NameOf(e_Process_ExternalMgr)),
          stateServer_(stateMgr_, StateMgrClient::kRecordStartItem,
                       StateMgrClient::kExitCovertModeItem),
          externalServer_(externalMgr_, 16, 21) {
        stateMgr_.Init();
        externalMgr_.Init();
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
    StubServer<SystickItem> stateServer_;
    StubServer<ExternalMgrApi::StreamingLvsStateItem> externalServer_;
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

// Each of `parts` in `log`, none before the one listed ahead of it.
::testing::AssertionResult InOrder(const std::string& log, const std::vector<std::string>& parts) {
    size_t at = 0;
    for (const std::string& part : parts) {
        at = log.find(part, at);
        if (at == std::string::npos) {
            return ::testing::AssertionFailure() << "'" << part << "' missing or early in:\n"
                                                 << log;
        }
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

// Help and bad options print the usage and exit 1 before anything is set up; the mode lines
// come in command-line order, and -l 0 does not silence the usage log.
TEST(ProcessCommandLine, UsageAndModeLines) {
    TestEnv env;
    const std::string program = ProgramPath("MetadataMgr");
    const std::string usage =
        "Usage:\n" + program +
        " [-l OR --loglevel LEVEL] [-s OR --simulator] [-r OR --radar Radar Only Simulation] \n"
        "    LEVEL = LogLevel for this process\n";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"-x"}, ""},
        {{"--bogus"}, ""},
        {{"-l"}, ""},
        {{"-r", "-s", "-l", "0", "-h"}, "Simulate Radar Only Mode\nRunning Simulation Mode\n"},
        {{"--simulator", "--radar", "--help"},
         "Running Simulation Mode\nSimulate Radar Only Mode\n"}};
    for (const auto& [args, out] : cases) {
        SCOPED_TRACE(::testing::PrintToString(args));
        std::vector<std::string> argv{program};
        argv.insert(argv.end(), args.begin(), args.end());
        const ProgramResult result = RunProgram(argv, {}, env.Root(), 20000);
        EXPECT_EQ(1, result.exitCode);
        EXPECT_EQ(out, result.out);
        EXPECT_THAT(result.err, HasSubstr(usage));
        EXPECT_THAT(result.err, HasSubstr("MetadataMgr abnormal shutdown due to Invalid Usage"));
    }
    EXPECT_NE(0, access((env.Media() + "/metadata").c_str(), F_OK));
}

// One full run: the started notice names the own process, the subscription is answered and
// makes the first output, stamped with the tick; the loop serves log level and ping, adds one
// forced filler per pass, and the quit is answered and closes the run in the store.
TEST(ProcessRun, HandshakeControlFillersAndQuit) {
    TestEnv env;
    Vehicle vehicle;
    const std::string versionFile =
        env.WriteFile("versions", "SYS_BUILD 4.2.1 revB\nFPGA 1.0.3\nKERNEL_BUILD 5.4.0\n");
    auto process = StartManager(env, {"HOST_SYSTICK_FILE=" + env.WriteFile("tick", "5000"),
                                      "VERSION_FILE=" + versionFile, "FORCE_METADATA="});
    Bytes answer;
    ASSERT_TRUE(vehicle.Expect(13232, &answer));
    EXPECT_EQ(WordBytes(19), answer);
    ASSERT_TRUE(vehicle.Send(13233, {1}));
    ASSERT_TRUE(vehicle.Expect(13234, &answer)) << process->Err();
    EXPECT_EQ(Bytes{1}, answer);
    ASSERT_TRUE(vehicle.Send(13235));  // all that follows reaches the loop

    ASSERT_TRUE(vehicle.Send(1873, WordBytes(0xDEAD)));  // a get's word is never read
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(WordBytes(255), answer);
    ASSERT_TRUE(vehicle.Send(1872, WordBytes(0xC3)));
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(WordBytes(0xC3), answer);
    // Unanswered, so the ping that follows is answered first and alone.
    ASSERT_TRUE(vehicle.Send(1873));
    ASSERT_TRUE(vehicle.Send(1872, {1, 2}));
    ASSERT_TRUE(vehicle.Send(13488));
    ASSERT_TRUE(vehicle.Expect(13489, &answer));
    EXPECT_TRUE(answer.empty());
    EXPECT_TRUE(vehicle.inbox.empty());
    ASSERT_TRUE(vehicle.Send(1873, {1}));  // a get only needs a payload
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(WordBytes(0xC3), answer) << "a short set must not change the level";

    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
    ASSERT_TRUE(vehicle.Expect(13239, &answer));
    EXPECT_TRUE(answer.empty());
    const ProgramResult result = process->Wait(20000);
    EXPECT_EQ(0, result.exitCode) << result.err;
    vehicle.Pump(100);  // whatever else it sent

    // The level in force (0xC3) keeps the ping trace and the quit lines (masks 64 and 128).
    EXPECT_TRUE(InOrder(
        result.err, {"Forcing fake periodic metadata",
                     "ProcessInitializer:", "first output to metadata files at system tick 5000",
                     "Got a StateMgrProcessMsg_FullRun", "HandleLogLevel: set mask c3",
                     "HandleLogLevel: error, DataPtr is null", "Ping Handler", "Quit Requested",
                     "Shutdown Requested", "Notify to StateMgr", "Exiting 0"}));
    EXPECT_TRUE(vehicle.inbox.empty());

    std::string error;
    const std::vector<StoreRecord> records =
        ReadStoreRecords(env.MetadataPath(), env.Root(), {}, &error);
    EXPECT_EQ("", error);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ("ReportShutdownData", records.back().Op());
    EXPECT_EQ(1u, WithOp(records, "ReportShutdownDataAtStartup").size());
    const std::vector<StoreRecord> versions = WithOp(records, "ReportVersion");
    ASSERT_EQ(2u, versions.size()) << "every entry named ...BUILD..., in file order";
    EXPECT_THAT(versions[0].line, HasSubstr("4.2.1"));
    EXPECT_THAT(versions[1].line, HasSubstr("5.4.0"));
    const std::vector<StoreRecord> fillers = WithOp(records, "ReportStringData");
    EXPECT_GE(fillers.size(), 6u) << "one filler per pass, at least one per message to the loop";
    for (const StoreRecord& record : fillers) {
        EXPECT_EQ(32, record.Int("tag"));
        EXPECT_EQ("Test string for filler 5000", record.Get("text")) << record.line;
    }
}

// A start that fails exits 1 and says why: a quit while waiting for the state manager is
// answered; a failed preparation sends the failed-start notice.
TEST(ProcessStartFailure, ExitsOneWithTheReason) {
    struct Case {
        unsigned int notice;
        const char* reason;
        std::function<void(const TestEnv&)> breakStart;
    };
    const Case cases[] = {
        {13232, "Quit Requested", [](const TestEnv&) {}},
        // Only one directory level is created: a media root under a missing parent fails.
        {13244, "Error Creating directory2",
         [](const TestEnv& env) { setenv("MEDIA_ROOT", env.Path("missing/media").c_str(), 1); }},
        {13244, "Shared Memory attachment failure",
         [](const TestEnv& env) { mkdir((env.Domain() + "/metadata.shm").c_str(), 0770); }},
        // An existing path passes the directory check; the store then cannot live under it.
        {13244, "Connected to shared Memory",
         [](const TestEnv& env) { env.WriteFile("media/metadata", "not a directory"); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.reason);
        TestEnv env;
        c.breakStart(env);
        Vehicle vehicle;
        auto process = StartManager(env);
        Bytes notice;
        ASSERT_TRUE(vehicle.Expect(c.notice, &notice)) << process->Err();
        EXPECT_EQ(WordBytes(19), notice);
        if (c.notice == 13232) {
            ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
            ASSERT_TRUE(vehicle.Expect(13239));
        }
        const ProgramResult result = process->Wait(20000);
        EXPECT_EQ(1, result.exitCode);
        EXPECT_TRUE(InOrder(result.err, {c.reason,
                                         c.notice == 13232 ? "WaitForStateMgr - shutdown requested."
                                                           : "Init: PreInit failed",
                                         "Unable to initialize MetadataMgr", "Exiting 1"}));
    }
}

// -l is read in base 10 without checks and the last one wins: "0x10" and "abc" are level 0,
// so the process runs silent, and says so when asked.
TEST(ProcessControl, LogLevelOptionBaseTenLastWins) {
    for (const char* level : {"0x10", "abc"}) {
        SCOPED_TRACE(level);
        TestEnv env;
        Vehicle vehicle;
        auto process =
            StartManager(env, {"RUN_WITHOUT_STATEMGR=1"}, {"-l", "255", "--loglevel", level});
        ASSERT_TRUE(vehicle.Send(1873, WordBytes(0)));
        Bytes answer;
        ASSERT_TRUE(vehicle.Expect(1874, &answer)) << process->Err();
        EXPECT_EQ(WordBytes(0), answer);
        ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
        const ProgramResult result = process->Wait(20000);
        EXPECT_EQ(0, result.exitCode);
        EXPECT_THAT(result.err, Not(HasSubstr("MetadataMgr:")));
    }
}

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

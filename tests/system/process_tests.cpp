// The metadata manager through its real binary. The test plays the rest of the vehicle: the
// state manager (handshake, control messages, its record and covert-mode events) and the
// external manager (live streams), each on its real endpoint and served through the real
// subscribe protocol; every other server is switched off.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <chrono>
#include <cstring>
#include <functional>
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

const std::string& NameOf(e_Process process) {
    return LinxServerNameList::Instance().Name(process);
}

// Answers every subscribe request for the item ids `make` knows with a default item.
class StubServer : public SubscribeServer {
public:
    StubServer(LinxIpc& ipc, std::function<Item*(unsigned int)> make)
        : SubscribeServer(ipc), make_(std::move(make)) {}
    void GetItem(unsigned int itemId, IpcMessage& reply, unsigned int msgType) override {
        std::unique_ptr<Item> item(make_(itemId));
        if (item && reply.Allocate(msgType, item->Size(), nullptr) == 0) {
            item->EncodeMsg(reply);
        }
    }

private:
    std::function<Item*(unsigned int)> make_;
};

// Everything runs on the test's thread: Pump() receives and dispatches.
class Vehicle {
public:
    Vehicle()
        : stateMgr_(NameOf(e_Process_StateMgr)),
          externalMgr_(NameOf(e_Process_ExternalMgr)),
          stateServer_(stateMgr_,
                       [](unsigned int id) -> Item* {
                           return id >= StateMgrClient::kRecordStartItem &&
                                          id <= StateMgrClient::kExitCovertModeItem
                                      ? new SystickItem()
                                      : nullptr;
                       }),
          externalServer_(externalMgr_, [](unsigned int id) -> Item* {
              return id >= 16 && id <= 21 ? new ExternalMgrApi::StreamingLvsStateItem() : nullptr;
          }) {
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
            for (auto it = inbox.begin(); it != inbox.end(); ++it) {
                if (it->first == type) {
                    if (payload != nullptr) {
                        *payload = it->second;
                    }
                    inbox.erase(it);
                    return true;
                }
            }
            return false;
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

    // Messages that reached the state manager and were not taken yet, in arrival order.
    std::vector<std::pair<unsigned int, Bytes>> inbox;

private:
    static void Collect(LinxIpc* ipc, void* context) {
        IpcMessage& msg = ipc->CurrentMessage();
        const unsigned char* data = msg.DataPtr();
        static_cast<Vehicle*>(context)->inbox.emplace_back(
            msg.MsgType(), data == nullptr ? Bytes() : Bytes(data, data + msg.Size()));
    }

    LinxIpc stateMgr_;
    LinxIpc externalMgr_;
    StubServer stateServer_;
    StubServer externalServer_;
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

// The quit notice is answered with an empty response and the process ends with status 0.
void Quit(Vehicle& vehicle, Subprocess& process) {
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
    Bytes answer;
    ASSERT_TRUE(vehicle.Expect(13239, &answer));
    EXPECT_TRUE(answer.empty());
    EXPECT_EQ(0, process.Wait(20000).exitCode) << process.Err();
}

std::vector<StoreRecord> Records(const TestEnv& env) {
    std::string error;
    const std::vector<StoreRecord> records =
        ReadStoreRecords(env.MetadataPath(), env.Root(), {}, &error);
    EXPECT_EQ("", error);
    return records;
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
         "Running Simulation Mode\nSimulate Radar Only Mode\n"},
    };
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

// The started notice names the own process; every subscribe request, whatever its flag, is
// answered on its own; the first output waits for a valid tick and is made once, stamped with
// it; the full run starts the loop; the quit is answered and closes the run in the store.
TEST(ProcessHandshake, SubscribesWritesFirstOutputRunsAndQuits) {
    TestEnv env;
    Vehicle vehicle;
    const std::string tickFile = env.WriteFile("tick", "");
    const std::string versionFile =
        env.WriteFile("versions", "SYS_BUILD 4.2.1 revB\nFPGA 1.0.3\nKERNEL_BUILD 5.4.0\n");
    auto process = StartManager(env, {"HOST_SYSTICK_FILE=" + tickFile, "HOST_SERIAL_NUMBER=SN-77",
                                      "VERSION_FILE=" + versionFile});
    Bytes payload;
    ASSERT_TRUE(vehicle.Expect(13232, &payload));
    EXPECT_EQ(WordBytes(19), payload);

    const std::pair<unsigned char, std::string> requests[] = {{0, ""}, {5, "5000"}, {1, "6000"}};
    for (const auto& [flag, tick] : requests) {
        env.WriteFile("tick", tick);
        ASSERT_TRUE(vehicle.Send(13233, {flag}));
        ASSERT_TRUE(vehicle.Expect(13234, &payload)) << process->Err();
        EXPECT_EQ(Bytes{1}, payload);
        if (tick.empty()) {
            EXPECT_THAT(process->Err(), HasSubstr("SystemTick not correct in InitializeStore"));
            EXPECT_THAT(process->Err(), Not(HasSubstr("Starting first output")));
        }
    }
    ASSERT_TRUE(vehicle.Send(13235));
    ASSERT_TRUE(process->WaitForErr("Got a StateMgrProcessMsg_FullRun", 20000));
    Quit(vehicle, *process);
    EXPECT_TRUE(
        InOrder(process->Err(),
                {"ProcessInitializer:", "first output to metadata files at system tick 5000",
                 "Quit Requested", "Shutdown Requested", "Notify to StateMgr", "Exiting 0"}));
    EXPECT_TRUE(vehicle.inbox.empty());

    const std::vector<StoreRecord> records = Records(env);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ("ReportShutdownData", records.back().Op());
    EXPECT_EQ(1u, WithOp(records, "ReportShutdownDataAtStartup").size());
    const std::vector<StoreRecord> serials = WithOp(records, "ReportSystemSerialNum");
    ASSERT_EQ(1u, serials.size()) << "the start-up output is made exactly once";
    EXPECT_EQ("SN-77", serials[0].Get("serial"));
    EXPECT_EQ(5000, serials[0].Int("at"));
    const std::vector<StoreRecord> versions = WithOp(records, "ReportVersion");
    ASSERT_EQ(2u, versions.size()) << "every entry named ...BUILD..., in file order";
    EXPECT_THAT(versions[0].line, HasSubstr("4.2.1"));
    EXPECT_THAT(versions[1].line, HasSubstr("5.4.0"));
}

// A quit while waiting for the state manager is answered and fails the start.
TEST(ProcessHandshake, QuitWhileWaitingFailsTheStart) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env);
    ASSERT_TRUE(vehicle.Expect(13232));
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
    ASSERT_TRUE(vehicle.Expect(13239));
    const ProgramResult result = process->Wait(20000);
    EXPECT_EQ(1, result.exitCode);
    EXPECT_TRUE(InOrder(result.err, {"Quit Requested", "Shutdown Requested",
                                     "WaitForStateMgr - shutdown requested.",
                                     "Unable to initialize MetadataMgr", "Exiting 1"}));
}

// A preparation that fails sends the failed-start notice, never the started one, and exits 1.
TEST(ProcessStartFailure, FailedPreparationIsReported) {
    const std::pair<std::string, std::function<void(const TestEnv&)>> cases[] = {
        // Only one directory level is created: a media root under a missing parent fails.
        {"Error Creating directory2",
         [](const TestEnv& env) { setenv("MEDIA_ROOT", env.Path("missing/media").c_str(), 1); }},
        {"Shared Memory attachment failure",
         [](const TestEnv& env) { mkdir((env.Domain() + "/metadata.shm").c_str(), 0770); }},
        // An existing path passes the directory check; the store then cannot live under it.
        {"Connected to shared Memory",
         [](const TestEnv& env) { env.WriteFile("media/metadata", "not a directory"); }},
    };
    for (const auto& [reason, breakStart] : cases) {
        SCOPED_TRACE(reason);
        TestEnv env;
        breakStart(env);
        Vehicle vehicle;
        auto process = StartManager(env);
        Bytes notice;
        ASSERT_TRUE(vehicle.Expect(13244, &notice)) << process->Err();
        EXPECT_EQ(WordBytes(19), notice);
        const ProgramResult result = process->Wait(20000);
        EXPECT_EQ(1, result.exitCode);
        EXPECT_TRUE(InOrder(result.err, {reason, "Init: PreInit failed",
                                         "Unable to initialize MetadataMgr", "Exiting 1"}));
        vehicle.Pump(100);
        for (const auto& received : vehicle.inbox) {
            EXPECT_NE(13232u, received.first) << "no started notice after a failed preparation";
        }
    }
}

// A full run before any subscribe request runs the loop unsubscribed; the loop answers log
// level get and set with the level in force, drops short or empty ones, and answers the ping.
TEST(ProcessControl, LogLevelAndPing) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env);
    ASSERT_TRUE(vehicle.Expect(13232));
    ASSERT_TRUE(vehicle.Send(13235));
    ASSERT_TRUE(process->WaitForErr("Got a StateMgrProcessMsg_FullRun", 20000));

    Bytes answer;
    ASSERT_TRUE(vehicle.Send(1873, WordBytes(0xDEAD)));  // a get's word is never read
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(WordBytes(255), answer);
    ASSERT_TRUE(vehicle.Send(1872, WordBytes(0xC3)));
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(WordBytes(0xC3), answer);
    EXPECT_TRUE(process->WaitForErr("HandleLogLevel: set mask c3", 5000));

    // Unanswered, so the ping that follows is answered first and alone.
    ASSERT_TRUE(vehicle.Send(1873));
    ASSERT_TRUE(vehicle.Send(1872, {1, 2}));
    ASSERT_TRUE(vehicle.Send(13488));
    ASSERT_TRUE(vehicle.Expect(13489, &answer));
    EXPECT_TRUE(answer.empty());
    vehicle.Pump(200);
    EXPECT_TRUE(vehicle.inbox.empty());
    EXPECT_TRUE(process->WaitForErr("HandleLogLevel: error, DataPtr is null", 5000));
    ASSERT_TRUE(vehicle.Send(1873, {1}));  // a get only needs a payload
    ASSERT_TRUE(vehicle.Expect(1874, &answer));
    EXPECT_EQ(WordBytes(0xC3), answer) << "a short set must not change the level";
    // The level in force lets the ping trace (mask 64) through.
    EXPECT_THAT(process->Err(), HasSubstr("Ping Handler"));

    Quit(vehicle, *process);
    EXPECT_THAT(process->Err(), Not(HasSubstr("SubscribeToServers")));
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

// Without the state manager the process subscribes on its own, makes the first output, runs and
// quits, sending the state manager nothing. FORCE_METADATA adds one filler string per loop
// pass, carrying the tick.
TEST(ProcessStore, WithoutStateMgrFillerEveryPass) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {"HOST_SYSTICK_FILE=" + env.WriteFile("tick", "7000"),
                                      "FORCE_METADATA=", "RUN_WITHOUT_STATEMGR=1"});
    // Every message makes one pass; the answers come once the loop runs.
    const unsigned int pings = 5;
    for (unsigned int i = 0; i < pings; ++i) {
        ASSERT_TRUE(vehicle.Send(13488));
    }
    for (unsigned int i = 0; i < pings; ++i) {
        ASSERT_TRUE(vehicle.Expect(13489)) << process->Err();
    }
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice));
    const ProgramResult result = process->Wait(20000);
    EXPECT_EQ(0, result.exitCode);
    EXPECT_TRUE(InOrder(
        result.err, {"Forcing fake periodic metadata", "finished first output to metadata files",
                     "Quit Requested", "Exiting 0"}));
    EXPECT_THAT(result.err, Not(HasSubstr("Notify to")));
    vehicle.Pump(100);
    EXPECT_TRUE(vehicle.inbox.empty());

    size_t fillers = 0;
    for (const StoreRecord& record : WithOp(Records(env), "ReportStringData")) {
        EXPECT_EQ(32, record.Int("tag"));
        EXPECT_EQ("Test string for filler 7000", record.Get("text")) << record.line;
        ++fillers;
    }
    EXPECT_GE(fillers, pings);
}

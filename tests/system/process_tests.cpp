// The metadata manager through its real binary, with linxpeer playing the rest of the vehicle
// on the real endpoints of a private domain: the state manager's handshake and control
// messages, and with --vehicle every server it subscribes to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "LogOrder.h"
#include "StoreRecords.h"
#include "Subprocess.h"
#include "TestEnv.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// Generous: every program runs under qemu on the ppc preset.
const int kRunMs = 60000;

struct Outcome {
    ProgramResult peer;
    ProgramResult manager;
};

// linxpeer runs `scenario`; once its roles are up (the scenario's "echo ready") the manager
// starts with `managerEnv` and `args`; both are waited for.
Outcome RunManager(const TestEnv& env, const std::string& scenario,
                   const std::vector<std::string>& managerEnv,
                   std::vector<std::string> args = {"-l", "255"},
                   const std::vector<std::string>& peerOptions = {}) {
    std::vector<std::string> peerArgs{ProgramPath("linxpeer")};
    peerArgs.insert(peerArgs.end(), peerOptions.begin(), peerOptions.end());
    peerArgs.push_back(env.WriteFile("peer.scenario", scenario));
    Subprocess peer(peerArgs, {}, env.Root());
    peer.Start();  // a start that failed shows as the output that never comes
    peer.WaitForOut("\nready\n", kRunMs);
    args.insert(args.begin(), ProgramPath("MetadataMgr"));
    Subprocess manager(args, managerEnv, env.Root());
    manager.Start();
    Outcome run{peer.Wait(kRunMs), {}};
    run.manager = manager.Wait(kRunMs);
    return run;
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

// Every program's --help is its usage and nothing else: exit status 0 (MetadataMgr's command
// line has always answered help with its usage and 1) where nothing can be made. Every program
// of the build is in the table; the benches, built only for the host, are skipped where they
// are not built.
TEST(ProgramHelp, EveryProgramPrintsItsUsageAndDoesNothingElse) {
    const char* const kVerbs[] = {"info",    "cat",     "copy",          "verify",
                                  "summary", "export",  "report",        "diff",
                                  "traffic", "package", "check-package", "keygen"};
    struct Row {
        std::vector<std::string> argv;
        int status;
        std::string usage;  // the beginning of its output (standard error for MetadataMgr)
    };
    std::vector<Row> rows = {
        {{"MetadataMgr", "--help"}, 1, "Usage:\n"},
        {{"linxpeer", "--help"}, 0, "Usage: linxpeer [OPTIONS]"},
        {{"mdstore", "--help"}, 0, "Usage: mdstore VERB [OPTIONS] PATH"},
        {{"flood_bench", "--help"}, 0, "Usage: flood_bench [MESSAGES [ROUNDS]]"},
        {{"export_bench", "--help"}, 0, "Usage: export_bench [HOURS [ROUNDS]]"},
        {{"mm_bench", "--help"}, 0, "benchmark [--benchmark_list_tests={true|false}]"},
    };
    for (const char* verb : kVerbs) {
        rows.push_back({{"mdstore", verb, "--help"}, 0, std::string("Usage: mdstore ") + verb});
    }
    std::set<std::string> listed;
    for (Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.argv));
        listed.insert(row.argv[0]);
        row.argv[0] = ProgramPath(row.argv[0]);
        if (access(row.argv[0].c_str(), X_OK) != 0) {
            std::printf("not built here: %s\n", row.argv[0].c_str());
            continue;
        }
        // Every place a program could make something lies below a file: any start of work
        // fails there, and shows in the exit status.
        TestEnv env;
        const std::string none = env.WriteFile("none", "");
        const ProgramResult result = RunProgram(
            row.argv,
            {"TMPDIR=" + none + "/tmp", "LINX_DOMAIN=" + none + "/domain", "MEDIA_ROOT=" + none},
            env.Root(), 20000);
        EXPECT_EQ(row.status, result.exitCode) << result.out << result.err;
        EXPECT_EQ(0u, (row.status == 0 ? result.out : result.err).find(row.usage))
            << result.out << result.err;
        if (row.argv == std::vector<std::string>{ProgramPath("mdstore"), "--help"}) {
            for (const char* verb : kVerbs) {
                EXPECT_THAT(result.out, HasSubstr(std::string("\n  ") + verb + " ")) << verb;
            }
            EXPECT_THAT(result.out, HasSubstr("--format gpx|geojson|csv|kml|mcap"));
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator(ProgramPath(""))) {
        const std::string name = entry.path().filename().string();
        // Test programs: the suites and the fuzz targets' corpus replays.
        const bool test = (name.size() > 6 && name.compare(name.size() - 6, 6, "_tests") == 0) ||
                          name.compare(0, 5, "fuzz_") == 0;
        EXPECT_TRUE(test || listed.count(name)) << name << " is missing from the table";
    }
}

// One full run in the whole vehicle: the handshake names the own process and makes the first
// output, stamped with the tick; the loop serves log level (a get's word is never read, a short
// set changes nothing and a payloadless get is not answered) and ping and adds one forced filler
// per pass; the quit is answered and closes the run in the store. The bookmark's subscriber, GPS
// in the shared block and the restarted server are the vehicle drive's (linxpeer_tests).
TEST(ProcessRun, WholeVehicleHandshakeControlFillersAndQuit) {
    TestEnv env;
    const std::string versionFile =
        env.WriteFile("versions", "SYS_BUILD 4.2.1 revB\nFPGA 1.0.3\nKERNEL_BUILD 5.4.0\n");
    const Outcome run = RunManager(env,
                                   "echo ready\n"
                                   "expect Started from MetadataMgr within 20000 u32@0=19 len=4\n"
                                   "expect Subscribed from MetadataMgr within 20000 u8@0=1 len=1\n"
                                   "subscribers ExternalMgr 21 1\n"
                                   "watchdog MetadataMgr alive\n"
                                   "send as StateMgr MetadataMgr LogLevelGet u32:0xDEAD\n"
                                   "expect LogLevelResponse from MetadataMgr u32@0=255 len=4\n"
                                   "send as StateMgr MetadataMgr LogLevelSet u32:0xC3\n"
                                   "expect LogLevelResponse from MetadataMgr u32@0=195\n"
                                   "send as StateMgr MetadataMgr LogLevelGet\n"
                                   "send as StateMgr MetadataMgr LogLevelSet hex:0102\n"
                                   "send as StateMgr MetadataMgr Ping\n"
                                   "expect PingResponse from MetadataMgr len=0\n"
                                   "never LogLevelResponse within 300\n"
                                   "send as StateMgr MetadataMgr LogLevelGet u8:1\n"
                                   "expect LogLevelResponse from MetadataMgr u32@0=195\n"
                                   "quit MetadataMgr\n"
                                   "expect ShutdownResponse from MetadataMgr len=0\n",
                                   {"HOST_SYSTICK_FILE=" + env.WriteFile("tick", "5000"),
                                    "VERSION_FILE=" + versionFile, "FORCE_METADATA="},
                                   {"-l", "255"}, {"--vehicle"});
    EXPECT_EQ(0, run.peer.exitCode) << run.peer.out << run.manager.err;
    EXPECT_EQ(0, run.manager.exitCode) << run.manager.err;
    // The level in force (0xC3) keeps the ping trace and the quit lines (masks 64 and 128).
    EXPECT_TRUE(InOrder(
        run.manager.err,
        {"Forcing fake periodic metadata", "ProcessInitializer:",
         "first output to metadata files at system tick 5000", "Got a StateMgrProcessMsg_FullRun",
         "HandleLogLevel: set mask c3", "HandleLogLevel: error, DataPtr is null", "Ping Handler",
         "Quit Requested", "Shutdown Requested", "Notify to StateMgr", "Exiting 0"}));

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
// answered; a failed preparation sends the failed-start notice. Only one directory level is
// created, and an existing path passes the directory check, but the store cannot live under
// a file.
TEST(ProcessStartFailure, ExitsOneWithTheReason) {
    const std::string waiting =
        "role StateMgr\n"
        "echo ready\n"
        "expect Started from MetadataMgr within 20000 u32@0=19\n"
        "quit MetadataMgr\n"
        "expect ShutdownResponse from MetadataMgr\n";
    const std::string failed =
        "role StateMgr\necho ready\nexpect FailedStart from MetadataMgr within 20000 u32@0=19\n";
    const struct {
        const std::string& scenario;
        const char* reason;
        const char* media;   // MEDIA_ROOT under the test's root ("" = the test's media)
        const char* broken;  // made a directory ('/' at the end) or a file under the root
    } cases[] = {
        {waiting, "Quit Requested", "", ""},
        {failed, "Error Creating directory2", "missing/media", ""},
        {failed, "Shared Memory attachment failure", "", "domain/metadata.shm/"},
        {failed, "Connected to shared Memory", "", "media/metadata"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reason);
        TestEnv env;
        const std::string broken = c.broken;
        if (!broken.empty() && broken.back() == '/') {
            ::mkdir(env.Path(broken).c_str(), 0770);
        } else if (!broken.empty()) {
            env.WriteFile(broken, "not a directory");
        }
        const std::string media = *c.media == '\0' ? env.Media() : env.Path(c.media);
        const Outcome run = RunManager(env, c.scenario, {"MEDIA_ROOT=" + media});
        EXPECT_EQ(0, run.peer.exitCode) << run.peer.out;
        EXPECT_EQ(1, run.manager.exitCode);
        EXPECT_TRUE(InOrder(run.manager.err,
                            {c.reason,
                             &c.scenario == &waiting ? "WaitForStateMgr - shutdown requested."
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
        const Outcome run = RunManager(env,
                                       "echo ready\n"
                                       "watchdog MetadataMgr alive within 20000\n"
                                       "send as StateMgr MetadataMgr LogLevelGet u32:0\n"
                                       "expect LogLevelResponse from MetadataMgr u32@0=0\n"
                                       "quit MetadataMgr\n",
                                       {"RUN_WITHOUT_STATEMGR=1"},
                                       {"-l", "255", "--loglevel", level}, {"--vehicle"});
        EXPECT_EQ(0, run.peer.exitCode) << run.peer.out;
        EXPECT_EQ(0, run.manager.exitCode);
        EXPECT_THAT(run.manager.err, Not(HasSubstr("MetadataMgr:")));
    }
}

// The bench peer through its real binary: two linxpeers in one private domain meet over the
// real IPC of the host platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "DataStore.h"
#include "LinxIpc.h"
#include "MetadataSharedMem.h"
#include "Subprocess.h"
#include "TestEnv.h"
#include "Watchdog.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// Generous: every program runs under qemu on the ppc preset.
const int kRunMs = 30000;

// Starts linxpeer on a scenario written to the test's directory.
std::unique_ptr<Subprocess> StartPeer(const TestEnv& env, const std::string& name,
                                      const std::string& scenario,
                                      std::vector<std::string> options = {}) {
    options.insert(options.begin(), ProgramPath("linxpeer"));
    options.push_back(env.WriteFile(name + ".scenario", scenario));
    auto peer = std::make_unique<Subprocess>(options, std::vector<std::string>(), env.Root());
    peer->Start();  // a start that failed shows as the output that never comes
    return peer;
}

ProgramResult RunPeer(const TestEnv& env, const std::string& name, const std::string& scenario) {
    return StartPeer(env, name, scenario)->Wait(kRunMs);
}

const unsigned int kOne = 1;
const bool kLittle = *reinterpret_cast<const unsigned char*>(&kOne) == 1;
// A capture's first line for this host's payloads, and the byte order it does not have.
const std::string kHead = "linxpeer-capture 1 ";
const std::string kCapture = kHead + (kLittle ? "little" : "big");
const std::string kOther = kLittle ? "big" : "little";
const std::string kRole = "role A B\n";

// What linxpeer cannot play, and what it says.
const struct Refusal {
    std::vector<std::string> args;  // "S": the scenario `text`, "C": the capture `text`
    std::string text;
    int exit;
    std::string says;
    std::string never = "";  // must not be said
} kRefusals[] = {
    {{"-t", "x", "S"}, "", 2, "linxpeer: --timeout needs milliseconds (linxpeer --help"},
    {{"--speed", "0", "S"}, "", 2, "--speed needs a factor above 0, or max"},
    {{"--bogus"}, "", 2, "linxpeer: unknown option"},
    {{"S", "S"}, "", 2, "one scenario at most"},
    {{"--replay", "C", "S"}, "", 2, "--replay plays a capture alone"},
    {{}, "", 2, "nothing to play: give a scenario, --name, --process, --vehicle or --replay"},
    {{"missing.scenario"}, "", 2, "cannot read missing.scenario"},
    {{"--capture", "no/such/dir", "S"}, "", 2, "cannot write no/such/dir: No such file"},
    {{"S"}, "echo \"open\n", 2, "s.scenario:1: unterminated quote"},
    // Every bad line is told, and nothing runs.
    {{"S"}, "expct 13504", 2, "s.scenario:1: unknown step 'expct'"},
    {{"S"}, "echo first\nexpct 13504\nsend", 2, "s.scenario:3: usage: send", "first"},
    {{"S"}, kRole + "send as A B NoSuchType", 2, ":2: unknown message type 'NoSuchType'"},
    {{"S"}, kRole + "send as A B 4711 u8:x", 2, ":2: field 'u8:x': not a u8 number"},
    {{"S"}, kRole + "send as A B 4711 u8", 2, "field 'u8' is not KIND:VALUE"},
    {{"S"}, kRole + "send as A B 4711 textN:x", 2, "field 'textN:x' is not textN:LEN:TEXT"},
    {{"S"}, kRole + "send as A B 4711 hex:abc", 2, "'hex:abc': hex needs pairs of hex digits"},
    {{"S"}, kRole + "send as A B 4711 f32:1", 2, "field 'f32:1': unknown kind 'f32'"},
    {{"S"}, "serve TempHal x TempStatus", 2, ":1: ITEM must be a number"},
    {{"S"}, "serve TempHal 0 NoClass", 2, ":1: unknown item class 'NoClass'"},
    {{"S"},
     "serve TempHal 0 TempStatus tick=1 x=1",
     2,
     "'x=1' is not FIELD=VALUE of TempStatus (fields: temperature0 temperature1 "
     "temperature2 temperature3 tick)"},
    {{"S"}, "serve TempHal 0 TempStatus tick=x", 2, "'tick=x': value not accepted"},
    {{"S"}, "serve TempHal 0 TempStatus\npush TempHal 3", 2, ":2: TempHal does not serve item 3"},
    {{"S"}, "serve TempHal 0 TempStatus\nsubscribers TempHal x 1", 2, "ITEM and N must be numbers"},
    {{"S"}, "statemgr fullrun=2", 2, ":1: 'fullrun=2' is not flag=N or fullrun=0|1"},
    {{"S"}, kRole + "died A Nowhere", 2, ":2: unknown process 'Nowhere'"},
    {{"S"}, kRole + "subscribe as A TempHal x 1 BoolItem", 2, "ITEM and NOTIFYID must be numbers"},
    {{"S"}, kRole + "subscribe as A TempHal 0 1 NoClass", 2, ":2: unknown item class 'NoClass'"},
    {{"S"}, "restart Nobody", 2, ":1: no role Nobody to restart"},
    {{"S"}, "watchdog 19 asleep", 2, "watchdog state must be alive, expired or absent"},
    {{"S"}, "wait x", 2, ":1: wait needs milliseconds"},
    {{"S"}, "expect within x", 2, ":1: within needs milliseconds"},
    {{"S"}, "expect 4711 u8@x=1", 2, "check 'u8@x=1': bad offset"},
    {{"S"}, "expect 4711 len=x", 2, "check 'len=x': length is not a number"},
    {{"S"}, "expect 4711 q@0=1", 2, "check 'q@0=1': unknown kind 'q'"},
    {{"S"}, "expect 4711 u8@0=x", 2, "check 'u8@0=x': bad value for u8"},
    {{"S"}, "expect 4711 foo", 2, "'foo' is neither a message type nor a check"},
    // Every kind of number goes out and is read back at its offset.
    {{"S"},
     kRole + "send as A B 4711 i8:-1 u16:513 i32:-5 u32:7 i16:-2\n"
             "expect 4711 to B i8@0=-1 u16@1=513 i32@3=-5 u32@7=7 i16@11=-2 len=13\nprint",
     0,
     "recv B <- A 4711 len=13 hex=ff"},
    {{"--replay", "missing.capture"}, "", 2, "error capture:0: cannot read missing.capture"},
    {{"--replay", "C"}, "nonsense", 2, "/c.capture is not a linxpeer capture"},
    {{"--replay", "C"}, kHead + kOther, 2, ":1: the capture's payloads are " + kOther},
    {{"--replay", "C"}, kCapture + "\nx recv", 2, "error capture:2: not a capture line"},
    {{"--replay", "C"}, kCapture + "\n5 recv A", 2, ":2: usage: MS recv ROLE OTHER TYPE HEX"},
    {{"--replay", "C"}, kCapture + "\n5 sync A", 2, "capture:2: usage: MS sync ROLE OTHER"},
    {{"--replay", "C"}, kCapture + "\n5 open", 2, "capture:2: usage: MS open ROLE"},
    {{"--replay", "C"}, kCapture + "\n5 bogus A", 2, "capture:2: unknown line '5 bogus A'"},
    {{"--replay", "C"},
     kCapture + "\n5 sent A B " + std::to_string(LinxIpc::kSubscribeReply) + " 0001",
     2,
     "capture:2: subscribe reply too short"},
    {{"-t", "200", "--replay", "C"},
     kCapture + "\n0 open A\n5 recv A B 77 -",
     1,
     "FAIL capture:3: A did not receive 77 from B within 200 ms"},
    {{"--help"}, "", 0, "  subscribers PROCESS ITEM N [within MS]"},
    {{"--help"}, "", 0, "  MetadataToFile             13490      text1024 u32 u32"},
};

}  // namespace

// One linxpeer serves a temperature item and refuses another; the others subscribe under the
// metadata manager's notification id and check the current value. The pushed change is
// stamped "now": the system tick, pinned here to 77. A failing expectation ends the run with
// status 1 and shows what arrived instead, decoded field by field; a refused subscription
// fails the same way.
TEST(Linxpeer, ServeSubscribePushAndFailures) {
    TestEnv env;
    ::setenv("HOST_SYSTICK_FILE", env.WriteFile("tick", "77").c_str(), 1);
    auto server = StartPeer(env, "server",
                            "serve TempHal 0 TempStatus temperature0=-40 tick=5\n"
                            "refuse TempHal 2\n"
                            "subscribers TempHal 0 1 within 20000\n"
                            "push TempHal 0 temperature1=21 tick=now   # a change\n"
                            "expect Ping from MetadataMgr within 20000\n");
    ::unsetenv("HOST_SYSTICK_FILE");
    ASSERT_TRUE(server->WaitForOut("server.scenario:3:", kRunMs)) << server->Out();

    const ProgramResult wrong =
        RunPeer(env, "wrong",
                "subscribe as MetadataMgr TempHal 0 13515 TempStatus temperature0=-40 tick=5\n"
                "expect 13515 from TempHal to MetadataMgr temperature1=22 within 1500\n"
                "echo not reached\n");
    EXPECT_EQ(1, wrong.exitCode) << wrong.out;
    EXPECT_THAT(wrong.out, HasSubstr("wrong.scenario:2: expect 13515 from TempHal"));
    EXPECT_THAT(wrong.out, HasSubstr("instead: recv MetadataMgr <- TempHal 13515 len=76 TempStatus "
                                     "temperature0=-40 temperature1=21 temperature2=0 "
                                     "temperature3=0 tick=77"));
    EXPECT_THAT(wrong.out, Not(HasSubstr("not reached")));

    const ProgramResult refused = RunPeer(env, "refused", "subscribe TempHal 2 13515 BoolItem\n");
    EXPECT_EQ(1, refused.exitCode) << refused.out;
    EXPECT_THAT(refused.out, HasSubstr("subscription refused by TempHal"));

    EXPECT_EQ(0, RunPeer(env, "done", "send as MetadataMgr TempHal Ping\n").exitCode);
    const ProgramResult served = server->Wait(kRunMs);
    EXPECT_EQ(0, served.exitCode) << served.out;
    EXPECT_THAT(served.out, HasSubstr("pushed TempHal item 0 to 1 subscribers"));
    EXPECT_THAT(served.out, HasSubstr("SubscribeRequest len=8 u32@0=0 u32@4=13515"));
}

// Every field kind goes out as written and is checked field by field at the other end; a
// peer without a scenario prints what reaches it until it is signalled; a send to an endpoint
// that does not exist fails the run.
TEST(Linxpeer, FieldsArriveAsWrittenAndPassivePeerPrints) {
    TestEnv env;
    auto receiver = StartPeer(env, "receiver",
                              "role Cli\n"
                              "expect MetadataToFile from VideoMgr within 20000 "
                              "text@0=/media/clip.md u32@1024=7 u32@1028=4294967295 len=1032\n"
                              "expect MicState u32@0=1 u32@4=3 u8@8=1 u8@9=0 len=10\n"
                              "expect 4711 i16@0=-40 hex@2=0aff \"text@4=a b\" len=8\n"
                              "expect ProcessDied from StateMgr u32@0=21\n"
                              "never Bookmark within 300\n");
    ASSERT_TRUE(receiver->WaitForOut("receiver.scenario:2:", kRunMs)) << receiver->Out();
    Subprocess passive({ProgramPath("linxpeer"), "--process", "12"}, {}, env.Root());
    ASSERT_TRUE(passive.Start());
    ASSERT_TRUE(passive.WaitForOut("serving until signalled", kRunMs)) << passive.Out();

    const ProgramResult sender =
        RunPeer(env, "sender",
                "role VideoMgr\n"
                "statemgr   # notices are taken only from the state manager\n"
                "send Cli MetadataToFile textN:1024:/media/clip.md u32:7 u32:0xFFFFFFFF\n"
                "send Cli MicState u32:1 u32:3 u8:1 u8:0\n"
                "send Cli 4711 i16:-40 hex:0aff \"text:a b\"   # a type without a name\n"
                "died Cli VideoMgr\n"
                "send Cli Ping\n"
                "send GpsHal LogLevelSet u32:0x1ff\n"
                "send Nobody Ping\n");
    EXPECT_EQ(1, sender.exitCode) << sender.out;
    EXPECT_THAT(sender.out, HasSubstr("send to Nobody failed"));

    const ProgramResult received = receiver->Wait(kRunMs);
    EXPECT_EQ(0, received.exitCode) << received.out;
    EXPECT_THAT(received.out,
                HasSubstr("recv Cli <- VideoMgr 13502 MicState len=10 u32@0=1 u32@4=3 "
                          "u8@8=1 u8@9=0 hex="));

    ASSERT_TRUE(
        passive.WaitForOut("recv GpsHal <- VideoMgr 1872 LogLevelSet len=4 u32@0=511", kRunMs))
        << passive.Out();
    passive.Signal(SIGTERM);
    EXPECT_EQ(0, passive.Wait(kRunMs).exitCode) << passive.Out();
}

// One linxpeer plays the state manager, the other a process going through the start-up
// handshake with its own flag, a record-start event, a server restart and the quit.
TEST(Linxpeer, StateManagerHandshakeWithAPlayedProcess) {
    TestEnv env;
    auto stateMgr = StartPeer(env, "statemgr",
                              "statemgr flag=0\n"
                              "serve GpsHal 1 GpsStatusItem\n"
                              "expect Started from MetadataMgr within 20000 u32@0=19 len=4\n"
                              "expect Subscribed from MetadataMgr u8@0=1\n"
                              "subscribers StateMgr 1 1\n"
                              "push StateMgr 1 tick=4242\n"
                              "die GpsHal\n"
                              "restart GpsHal\n"
                              "quit MetadataMgr\n"
                              "expect ShutdownResponse from MetadataMgr len=0\n");
    ASSERT_TRUE(stateMgr->WaitForOut("statemgr.scenario:3:", kRunMs)) << stateMgr->Out();

    const ProgramResult process = RunPeer(env, "process",
                                          "role MetadataMgr\n"
                                          "send StateMgr Started u32:19\n"
                                          "expect Subscribe from StateMgr u8@0=0 len=1\n"
                                          "subscribe StateMgr 1 13505 SystickItem tick=0\n"
                                          "send StateMgr Subscribed u8:1\n"
                                          "expect FullRun from StateMgr\n"
                                          "expect 13505 from StateMgr tick=4242\n"
                                          "expect Restarted from StateMgr u32@0=12\n"
                                          "expect Shutdown from StateMgr\n"
                                          "send StateMgr ShutdownResponse\n");
    EXPECT_EQ(0, process.exitCode) << process.out;
    EXPECT_EQ(0, stateMgr->Wait(kRunMs).exitCode);
}

// What linxpeer cannot play it refuses with the reason and the place (exit 2): options, a
// scenario line or a capture line, before anything runs, and a step that cannot be done when it
// runs. A replay that misses a message fails (exit 1). --help names every step and message.
TEST(Linxpeer, RefusesWhatItCannotPlayWithTheReason) {
    TestEnv env;
    for (const Refusal& c : kRefusals) {
        SCOPED_TRACE(c.says);
        std::vector<std::string> argv{ProgramPath("linxpeer")};
        for (const std::string& arg : c.args) {
            argv.push_back(arg == "S"   ? env.WriteFile("s.scenario", c.text + "\n")
                           : arg == "C" ? env.WriteFile("c.capture", c.text + "\n")
                                        : arg);
        }
        const ProgramResult run = RunProgram(argv, {}, env.Root(), kRunMs);
        EXPECT_EQ(c.exit, run.exitCode) << run.out << run.err;
        EXPECT_THAT(run.out + run.err, HasSubstr(c.says));
        EXPECT_TRUE(c.never.empty() || run.out.find(c.never) == std::string::npos) << run.out;
    }
}

// Heartbeat and shared block of this test's domain, as a process of the vehicle leaves them.
TEST(Linxpeer, ChecksWatchdogAndSharedBlock) {
    TestEnv env;
    Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
    ASSERT_TRUE(watchdog.Subscribe(45));
    MetadataSharedMem shared;
    unsigned char* block = shared.MetadataItems(false);
    ASSERT_NE(nullptr, block);
    const unsigned short speed = 19;
    std::memcpy(block + 0x40, &speed, sizeof speed);
    block[8] = 'N';

    const ProgramResult good = RunPeer(env, "good",
                                       "watchdog MetadataMgr alive\n"
                                       "watchdog 14 absent\n"
                                       "shm u16@0x40=19 u8@8=78 hex@8=4e\n");
    EXPECT_EQ(0, good.exitCode) << good.out;

    const ProgramResult wrong = RunPeer(env, "wrong", "shm u16@0x40=20 within 100\n");
    EXPECT_EQ(1, wrong.exitCode) << wrong.out;
    EXPECT_THAT(wrong.out, HasSubstr("does not hold: u16@0x40=20"));

    watchdog.Unsubscribe();
    const ProgramResult gone = RunPeer(env, "gone", "watchdog 19 alive within 100\n");
    EXPECT_EQ(1, gone.exitCode) << gone.out;
    EXPECT_THAT(gone.out, HasSubstr("watchdog of 19 is absent"));
}

// Runs the real metadata manager (with `simulator` options on the draws of the file `draws`,
// logged beside its store) against a linxpeer with `args`, its store and clock apart; an empty
// `clock` is the real one.
std::string Drive(const TestEnv& env, std::vector<std::string> args, const std::string& media,
                  const std::string& clock, const std::vector<std::string>& simulator = {},
                  const std::string& draws = "") {
    std::vector<std::string> environment = {"MEDIA_ROOT=" + env.Path(media)};
    if (!clock.empty()) {
        environment.push_back("HOST_SYSTICK_FILE=" + env.Path(clock));
    }
    std::vector<std::string> manage = {ProgramPath("MetadataMgr")};
    if (!simulator.empty()) {
        environment.push_back("SIMULATOR_DRAWS=" + env.Path(draws));
        environment.push_back("SIMULATOR_DRAWS_LOG=" + env.Path(media) + "/metadata/draws.log");
        manage.insert(manage.end(), simulator.begin(), simulator.end());
    }
    ::mkdir(env.Path(media).c_str(), 0770);
    args.insert(args.begin(), ProgramPath("linxpeer"));
    Subprocess vehicle(args, environment, env.Root());
    vehicle.Start();
    for (int i = 0; i < 300 && access((env.Domain() + "/StateMgr").c_str(), F_OK) != 0; ++i) {
        ::usleep(100000);
    }
    Subprocess manager(manage, environment, env.Root());
    manager.Start();
    const ProgramResult played = vehicle.Wait(60000);
    EXPECT_EQ(0, played.exitCode) << played.out << manager.Err();
    EXPECT_EQ(0, manager.Wait(kRunMs).exitCode) << manager.Err();
    return played.out;
}

// The whole vehicle around the real metadata manager: handshake, every server subscribed and
// sending every kind of notice, every request, a bookmark reaching a subscriber of the
// manager's own item, GPS in the shared block, a restarted server subscribed again, quit.
// The drive's store turned back into traffic, and the drive's capture played ten times
// faster, each give a fresh process the same records.
TEST(Linxpeer, VehicleDriveReplaysAsIdentical) {
    TestEnv env;
    env.WriteFile("clock", "900");
    const std::string played =
        Drive(env,
              {"--vehicle", "--capture", env.Path("capture"),
               env.WriteFile("vehicle.scenario",
                             "streammgr REC-1\n"
                             "expect Subscribed from MetadataMgr within 20000 u8@0=1\n"
                             "subscribers ExternalMgr 21 1\n"
                             "watchdog MetadataMgr alive\n"
                             "subscribe as Cli MetadataMgr 0 5000 BoolItem value=0\n"
                             "send as Cli MetadataMgr Bookmark u32:1234\n"
                             "expect 5000 from MetadataMgr to Cli value=1\n"
                             "push GpsHal 1 speed=195 fixStatus=1 tick=2000\n"
                             "shm u16@0x40=195 u8@8=78\n"
                             "push GpsHal 1 fixStatus=7 tick=2001\n"
                             "push ConfigMgr 10 vehicleId=UNIT-8\n"
                             "push ConfigMgr 7 systemName=Other\n"
                             "push ConfigMgr 11 name=Dept\n"
                             "push ConfigMgr 12 name=\"K. Jones\"\n"
                             "push ConfigMgr 13 preEventSeconds=20\n"
                             "push FpgaHal 17 changedMask=0xBE000 inputLevels=0x2A000 tick=2002\n"
                             "push StateMgr 1 tick=2003\n"
                             "push StateMgr 3 tick=2004\n"
                             "wait 300\n"
                             "push StateMgr 4 tick=2005\n"
                             "push RadarHal 1 status=1 patrolSpeed=45 targetSpeed=52 tick=2006\n"
                             "push RadarHal 1 status=0x81 tick=2007\n"
                             "push MicMgr 0 mics=0:1:1,7:1:0 tick=2008\n"
                             "push AccelHal 1 crash=1 tick=2009\n"
                             "push VideoMgr 0 camera0=1 camera6=2 tick=2010\n"
                             "push VideoMgr 1 quality0=2 tick=2011\n"
                             "push TempHal 0 temperature0=-40 tick=2012\n"
                             "push ExternalMgr 16 enabled=1 camera=258 address=10.0.0.5 port=554\n"
                             "push ExternalMgr 21 highQuality=1\n"
                             "wait 300\n"
                             "send as Cli MetadataMgr CameraState u32:2013 u32:2 u32:1\n"
                             "send as Cli MetadataMgr VideoStreamState u32:2014 u32:3 u32:2\n"
                             "send as Cli MetadataMgr MicState u32:2015 u32:2 u8:1 u8:1\n"
                             "send as Cli MetadataMgr RecordStartStop u32:0 u8:1\n"
                             "push StateMgr 2 tick=2016\n"
                             "sync as Cli MetadataMgr\n"
                             "clear\n"
                             "restart TempHal\n"
                             "expect SubscribeRequest from MetadataMgr to TempHal u32@4=13515\n"
                             "send as Cli MetadataMgr Ping\n"
                             "expect PingResponse from MetadataMgr\n"
                             "quit MetadataMgr\n"
                             "expect ShutdownResponse from MetadataMgr\n")},
              "media", "clock");
    EXPECT_THAT(played, HasSubstr("sent StreamMgr -> MetadataMgr 14101"));

    const ProgramResult traffic =
        RunMdstore({"traffic", env.MetadataPath(), env.Path("traffic")}, env.Root());
    EXPECT_EQ(0, traffic.exitCode) << traffic.err;
    EXPECT_THAT(traffic.err, Not(HasSubstr("records no traffic reproduces")));
    Drive(env, {"-t", "30000", "--speed", "max", "--replay", env.Path("traffic")}, "back", "tick");
    EXPECT_THAT(Drive(env, {"-t", "30000", "--speed", "10", "--replay", env.Path("capture")},
                      "fast", "clock"),
                HasSubstr("synced Cli <- MetadataMgr"));
    for (const char* replayed : {"back", "fast"}) {
        const ProgramResult diff = RunMdstore(
            {"diff", env.MetadataPath(), env.Path(replayed) + "/metadata/metadata"}, env.Root());
        EXPECT_EQ("identical\n", diff.out) << replayed;
        EXPECT_EQ(0, diff.exitCode);
    }
}

// Simulated drives, full and radar only: the simulator on draws that toggle inputs and
// microphones, lose and find the GPS fix and turn the radar off and on, a loop pass after each
// message, among notices that store several records at once. Each store, turned back into
// traffic through the draws the process logged beside it, gives a fresh simulating process the
// same records and the same log. Without the log the drive is traffic alone, which is said; a
// log cut short in a pass is refused.
TEST(Linxpeer, SimulatedDrivesReplayAsIdenticalThroughTheirDraws) {
    for (const std::vector<std::string>& simulator :
         {std::vector<std::string>{"-s"}, std::vector<std::string>{"-s", "-r"}}) {
        SCOPED_TRACE(simulator.size() == 1 ? "-s" : "-s -r");
        TestEnv env;
        std::string draws;
        unsigned int seed = 2026;
        for (int draw = 0; draw < 5 * 400; ++draw) {
            seed = seed * 1103515245u + 12345u;
            draws += std::to_string((seed >> 16) & 0x7FFF) + "\n";
        }
        env.WriteFile("drive.draws", draws);
        std::string scenario =
            "streammgr REC-1\n"
            "expect Subscribed from MetadataMgr within 20000 u8@0=1\n";
        const char* const notices[] = {
            "push VideoMgr 0 camera0=1 camera2=3 tick=now\n",
            "push MicMgr 0 mics=0:1:1,1:1:0,3:1:1 tick=now\n",
            "push FpgaHal 17 changedMask=0x28000 inputLevels=0x20000 tick=now\n",
            "push GpsHal 1 speed=452 fixStatus=1 tick=now\n",
            "push RadarHal 1 status=1 patrolSpeed=45 targetSpeed=52 tick=now\n",
            "push TempHal 0 temperature0=36 tick=now\n",
            "push StateMgr 1 tick=now\n",
            "send as Cli MetadataMgr Bookmark u32:now\n"};
        for (int pass = 0; pass < 160; ++pass) {
            scenario += pass % 10 == 3 ? notices[pass / 10 % 8]
                                       : "send as Cli MetadataMgr Ping\n"
                                         "expect PingResponse from MetadataMgr within 5000\n";
        }
        scenario +=
            "quit MetadataMgr\n"
            "expect ShutdownResponse from MetadataMgr\n";
        Drive(env, {"--vehicle", env.WriteFile("sim.scenario", scenario)}, "media", "", simulator,
              "drive.draws");

        const ProgramResult traffic =
            RunMdstore({"traffic", env.MetadataPath(), env.Path("traffic")}, env.Root());
        ASSERT_EQ(0, traffic.exitCode) << traffic.err;
        EXPECT_THAT(traffic.err, HasSubstr("simulated drive of"));
        const std::string log = env.Media() + "/metadata/draws.log";
        Drive(env, {"-t", "30000", "--speed", "max", "--replay", env.Path("traffic")}, "back",
              "tick", simulator, "media/metadata/draws.log");
        const ProgramResult diff = RunMdstore(
            {"diff", env.MetadataPath(), env.Path("back/metadata/metadata")}, env.Root());
        EXPECT_EQ("identical\n", diff.out);
        const std::string logged = ReadFileText(log);
        EXPECT_EQ(logged, ReadFileText(env.Path("back/metadata/draws.log")));

        // Cut short in its last pass, then without the log.
        const std::string cut =
            env.WriteFile("cut.log", logged.substr(0, logged.rfind('\n', logged.size() - 2) + 1));
        const ProgramResult refused = RunMdstore(
            {"traffic", "--draws", cut, env.MetadataPath(), env.Path("refused")}, env.Root());
        EXPECT_EQ(2, refused.exitCode);
        EXPECT_THAT(refused.err, HasSubstr("cut.log is cut short in its last pass (pass "));
        ASSERT_EQ(0, std::rename(log.c_str(), env.Path("kept.log").c_str()));
        const ProgramResult alone =
            RunMdstore({"traffic", env.MetadataPath(), env.Path("alone")}, env.Root());
        EXPECT_EQ(0, alone.exitCode);
        EXPECT_THAT(alone.err, HasSubstr("no simulator draws log at " + log +
                                         ": the drive is turned into traffic alone; if "
                                         "MetadataMgr simulated it (-s), the simulator's records "
                                         "will differ in a replay"));
    }
}

// Two stores alike but for one value differ in exactly that record; without it, in it alone.
TEST(Linxpeer, DiffNamesTheOneRecordChanged) {
    TestEnv env;
    for (const char* name : {"a", "b", "c"}) {  // c: the speed left out
        ::mkdir(env.Path(name).c_str(), 0770);
        DataStoreNormal store(env.Path(name) + "/metadata");
        ASSERT_TRUE(store.Open());
        store.TimerTick(100);
        store.ReportBookmark(101);
        if (name[0] != 'c') {
            store.ReportSpeed(1, name[0] == 'a' ? 40 : 41, true, 102, e_Tag_None);
        }
        store.ReportBookmark(103);
        store.Close();
    }
    const ProgramResult diff =
        RunMdstore({"diff", env.Path("a/metadata"), env.Path("b/metadata")}, env.Root());
    EXPECT_EQ(1, diff.exitCode);
    EXPECT_EQ(
        "records differ:\n"
        "  A record 4: 100 ReportSpeed source=1 speed=40 flag=1 tick=102 tag=0 sourceName=\"gps\"\n"
        "  B record 4: 100 ReportSpeed source=1 speed=41 flag=1 tick=102 tag=0 sourceName=\"gps\"\n"
        "1 differences (A has 3 drive records, B 3)\n",
        diff.out);
    EXPECT_EQ(
        "only in A:\n"
        "  A record 4: 100 ReportSpeed source=1 speed=40 flag=1 tick=102 tag=0 "
        "sourceName=\"gps\"\n1 differences (A has 3 drive records, B 2)\n",
        RunMdstore({"diff", env.Path("a/metadata"), env.Path("c/metadata")}, env.Root()).out);
}

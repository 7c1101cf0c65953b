// The bench peer through its real binary: two linxpeers in one private domain meet over the
// real IPC of the host platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

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

}  // namespace

// One linxpeer serves a temperature item and refuses another; the others subscribe under the
// metadata manager's notification id and check the current value. The pushed change is
// stamped "now": the system tick, pinned here to 77. A failing expectation ends the run with
// status 1 and shows what arrived instead, decoded field by field; a refused subscription
// fails the same way; a scenario with a bad line runs nothing and exits 2.
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

    const ProgramResult bad = RunPeer(env, "bad", "echo first\nexpct 13504\nsend\n");
    EXPECT_EQ(2, bad.exitCode) << bad.out;
    EXPECT_THAT(bad.out, HasSubstr("bad.scenario:2: unknown step 'expct'"));
    EXPECT_THAT(bad.out, HasSubstr("bad.scenario:3: usage: send"));
    EXPECT_THAT(bad.out, Not(HasSubstr("first")));

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

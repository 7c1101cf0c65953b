// The process's start-up handshake and shut-down with the state manager, through the real binary.
#include <gtest/gtest.h>

#include <cstring>

#include "LinxIpc.h"
#include "StoreRecords.h"
#include "process_Vehicle.h"

namespace {

unsigned int Word(const Received& received) {
    unsigned int word = 0;
    if (received.payload.size() >= sizeof word) {
        std::memcpy(&word, received.payload.data(), sizeof word);
    }
    return word;
}

// Sends the quit notice and expects the answer, exit status 0 and the last log line.
void QuitNormally(Vehicle& vehicle, Subprocess& process) {
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice, nullptr, 0));
    Received answer;
    ASSERT_TRUE(vehicle.Expect(13239, &answer));
    EXPECT_TRUE(answer.payload.empty());
    const ProgramResult result = process.Wait(20000);
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_NE(std::string::npos, result.err.find("Exiting 0"));
}

}  // namespace

// Started notice carries the own process; every subscribe request, whatever its flag, gets its
// own response; full run starts the loop; quit is answered and the process ends cleanly.
TEST(ProcessHandshake, SubscribesOnEachRequestRunsAndQuits) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {});
    ASSERT_TRUE(process);

    Received started;
    ASSERT_TRUE(vehicle.Expect(13232, &started));
    ASSERT_EQ(4u, started.payload.size());
    EXPECT_EQ(19u, Word(started));

    for (unsigned char flag : {0, 5}) {
        ASSERT_TRUE(vehicle.SendByte(13233, flag));
        Received subscribed;
        ASSERT_TRUE(vehicle.Expect(13234, &subscribed)) << process->Err();
        ASSERT_EQ(1u, subscribed.payload.size());
        EXPECT_EQ(1, subscribed.payload[0]) << process->Err();
    }
    ASSERT_TRUE(vehicle.Send(13235, nullptr, 0));
    ASSERT_TRUE(process->WaitForErr("Got a StateMgrProcessMsg_FullRun", 20000));
    EXPECT_TRUE(process->Running());

    QuitNormally(vehicle, *process);
    const std::string log = process->Err();
    size_t at = FindFrom(log, "ProcessInitializer:");
    at = FindFrom(log, "Quit Requested", at);
    at = FindFrom(log, "Shutdown Requested", at);
    at = FindFrom(log, "Notify to StateMgr", at);
    EXPECT_NE(std::string::npos, FindFrom(log, "Exiting 0", at)) << log;
    EXPECT_TRUE(vehicle.inbox.empty());

    // Two subscribe requests: the start-up records are made once, the shutdown closes the run.
    std::string error;
    const std::vector<StoreRecord> records =
        ReadStoreRecords(env.MetadataPath(), env.Root(), {}, &error);
    EXPECT_EQ("", error);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(1u, WithOp(records, "ReportShutdownDataAtStartup").size());
    EXPECT_EQ("ReportShutdownData", records.back().Op());
}

// A full run before any subscribe request runs the process without its subscriptions.
TEST(ProcessHandshake, FullRunBeforeSubscribeRunsUnsubscribed) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {});
    ASSERT_TRUE(process);
    ASSERT_TRUE(vehicle.Expect(13232));
    ASSERT_TRUE(vehicle.Send(13235, nullptr, 0));
    ASSERT_TRUE(process->WaitForErr("Got a StateMgrProcessMsg_FullRun", 20000));
    QuitNormally(vehicle, *process);
    EXPECT_EQ(std::string::npos, process->Err().find("SubscribeToServers"));
}

// A quit while waiting for the state manager: shut down, answered, start failed.
TEST(ProcessHandshake, QuitWhileWaitingFailsTheStart) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {});
    ASSERT_TRUE(process);
    ASSERT_TRUE(vehicle.Expect(13232));
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice, nullptr, 0));
    ASSERT_TRUE(vehicle.Expect(13239));
    const ProgramResult result = process->Wait(20000);
    EXPECT_EQ(1, result.exitCode);
    size_t at = FindFrom(result.err, "Quit Requested");
    at = FindFrom(result.err, "Shutdown Requested", at);
    at = FindFrom(result.err, "WaitForStateMgr - shutdown requested.", at);
    at = FindFrom(result.err, "Unable to initialize MetadataMgr", at);
    EXPECT_NE(std::string::npos, FindFrom(result.err, "Exiting 1", at)) << result.err;
}

// Without the state manager nothing is sent to it, the process subscribes on its own, and a
// quit still shuts it down.
TEST(ProcessHandshake, WithoutStateMgrSendsNothing) {
    TestEnv env;
    Vehicle vehicle;
    auto process = StartManager(env, {"RUN_WITHOUT_STATEMGR=1"});
    ASSERT_TRUE(process);
    // The ping is answered once the loop runs, that is after the subscriptions.
    ASSERT_TRUE(vehicle.Send(13488, nullptr, 0));
    ASSERT_TRUE(vehicle.Expect(13489)) << process->Err();
    EXPECT_NE(std::string::npos, process->Err().find("finished first output to metadata files"));
    ASSERT_TRUE(vehicle.Send(LinxIpc::kShutdownNotice, nullptr, 0));
    const ProgramResult result = process->Wait(20000);
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_NE(std::string::npos, result.err.find("Quit Requested"));
    EXPECT_NE(std::string::npos, result.err.find("Exiting 0"));
    vehicle.Pump(100);
    EXPECT_TRUE(vehicle.inbox.empty());
    EXPECT_EQ(std::string::npos, result.err.find("Notify to"));
}

// A start that fails in preparation is reported to the state manager and exits with 1.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <cstring>

#include "process_Vehicle.h"

namespace {

// Runs the process to its end and checks the failed-start notice and the log line `reason`.
void ExpectFailedStart(const TestEnv& env, const std::string& reason) {
    Vehicle vehicle;
    auto process = StartManager(env, {});
    ASSERT_TRUE(process);
    Received notice;
    ASSERT_TRUE(vehicle.Expect(13244, &notice)) << process->Err();
    unsigned int own = 0;
    ASSERT_EQ(sizeof own, notice.payload.size());
    std::memcpy(&own, notice.payload.data(), sizeof own);
    EXPECT_EQ(19u, own);

    const ProgramResult result = process->Wait(20000);
    EXPECT_EQ(1, result.exitCode);
    size_t at = FindFrom(result.err, reason);
    at = FindFrom(result.err, "Init: PreInit failed", at);
    at = FindFrom(result.err, "Unable to initialize MetadataMgr", at);
    EXPECT_NE(std::string::npos, FindFrom(result.err, "Exiting 1", at)) << result.err;
    vehicle.Pump(100);
    for (const Received& received : vehicle.inbox) {
        EXPECT_NE(13232u, received.type) << "no started notice after a failed preparation";
    }
}

}  // namespace

TEST(ProcessStartFailure, MetadataDirectoryCannotBeCreated) {
    TestEnv env;
    // Only one directory level is created: a media root under a missing parent fails.
    setenv("MEDIA_ROOT", env.Path("missing/media").c_str(), 1);
    ExpectFailedStart(env, "Error Creating directory2");
}

TEST(ProcessStartFailure, SharedBlockCannotBeAttached) {
    TestEnv env;
    ASSERT_EQ(0, mkdir((env.Domain() + "/metadata.shm").c_str(), 0770));
    ExpectFailedStart(env, "Shared Memory attachment failure");
}

TEST(ProcessStartFailure, StoreCannotOpen) {
    TestEnv env;
    // An existing path passes the directory check; the store then cannot live under it.
    env.WriteFile("media/metadata", "not a directory");
    ExpectFailedStart(env, "Connected to shared Memory");
}

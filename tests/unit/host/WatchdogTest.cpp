#include "Watchdog.h"

#include "HostInspect.h"
#include "TestEnv.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>

using hostinspect::ReadWatchdog;
using hostinspect::WatchdogStatus;

TEST(Watchdog, HeartbeatIsSeenThroughTheDomain) {
    TestEnv env;
    WatchdogStatus status;
    Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);

    // Petting before registration leaves no trace.
    watchdog.PetWatchdog();
    EXPECT_FALSE(watchdog.Subscribed());
    EXPECT_EQ(0u, watchdog.PetCount());
    EXPECT_FALSE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));

    ASSERT_TRUE(watchdog.Subscribe(45));
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_TRUE(status.subscribed);
    EXPECT_EQ(45u, status.timeoutSeconds);
    EXPECT_EQ(0u, status.petCount);
    EXPECT_FALSE(status.expired);

    for (int i = 0; i < 3; ++i) {
        watchdog.PetWatchdog();
    }
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_EQ(3u, status.petCount);
    EXPECT_EQ(3u, watchdog.PetCount());
    EXPECT_GT(status.lastPetMs, 0u);

    // Another process's heartbeat is its own.
    EXPECT_FALSE(ReadWatchdog(e_Process_GpsHal, e_Thread_Main, status));

    watchdog.Unsubscribe();
    watchdog.PetWatchdog();
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_FALSE(status.subscribed);
    EXPECT_FALSE(status.expired);
    EXPECT_EQ(3u, status.petCount);
    EXPECT_FALSE(watchdog.Subscribed());

    // Registering again starts a fresh heartbeat.
    ASSERT_TRUE(watchdog.Subscribe(10));
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_TRUE(status.subscribed);
    EXPECT_EQ(10u, status.timeoutSeconds);
    EXPECT_EQ(0u, status.petCount);
}

TEST(Watchdog, ExpiresWhenNotPettedWithinItsTimeout) {
    TestEnv env;
    Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
    ASSERT_TRUE(watchdog.Subscribe(1));
    ::usleep(1100 * 1000);
    WatchdogStatus status;
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_TRUE(status.expired);
    watchdog.PetWatchdog();
    ASSERT_TRUE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
    EXPECT_FALSE(status.expired);
}

TEST(Watchdog, RefusedOrUnwritableRegistrationFails) {
    TestEnv env;
    WatchdogStatus status;
    {
        ::setenv("HOST_WATCHDOG_REFUSE", "1", 1);
        Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
        EXPECT_FALSE(watchdog.Subscribe(45));
        watchdog.PetWatchdog();
        EXPECT_FALSE(watchdog.Subscribed());
        EXPECT_FALSE(ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status));
        ::unsetenv("HOST_WATCHDOG_REFUSE");
    }
    {
        // A plain file where the heartbeat directory belongs.
        env.WriteFile("domain/watchdog", "not a directory");
        Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
        EXPECT_FALSE(watchdog.Subscribe(45));
        watchdog.PetWatchdog();
        EXPECT_EQ(0u, watchdog.PetCount());
    }
}

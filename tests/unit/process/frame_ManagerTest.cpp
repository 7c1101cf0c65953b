// The manager's own life in-process: shared block, request handlers, bookmark server, first
// output to the store, periodic work and shutdown.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "KvCommon.h"
#include "ManagerHarness.h"
#include "MediaRoot.h"
#include "ProcessState.h"

// PreInit writes exactly the listed fields of the shared block ({offset, width, value}, the
// two position records' padding after their first byte included) and leaves every other byte;
// the destructor marks the block.
TEST(FrameManager, SharedBlockInitialValuesAndEndMark) {
    ManagerHarness h;
    MetadataSharedMem other;
    unsigned char* block = other.MetadataItems(true);
    ASSERT_NE(nullptr, block);
    std::memset(block, 0xAA, MetadataSharedMem::kBlockSize);
    ASSERT_TRUE(h.Prepare());
    unsigned char expected[MetadataSharedMem::kBlockSize];
    std::memset(expected, 0xAA, sizeof expected);
    const Field reset[] = {{0, 2, 0x0100}, {8, 1, 0},  {12, 4, 0},          {16, 2, 0}, {20, 4, 0},
                           {24, 1, 0},     {28, 4, 0}, {32, 2, 0},          {36, 4, 0}, {40, 4, 0},
                           {44, 4, 0},     {48, 4, 0}, {52, 4, 0x07FFFFFF}, {56, 4, 0}, {60, 4, 0},
                           {64, 2, 0},     {76, 4, 0}, {80, 4, 0},          {84, 2, 0}};
    for (const Field& f : reset) {
        const uint32_t word = static_cast<uint32_t>(f.value);
        const uint16_t half = static_cast<uint16_t>(f.value);
        std::memcpy(expected + f.offset, f.width == 2 ? static_cast<const void*>(&half) : &word,
                    f.width);
    }
    EXPECT_EQ(0, std::memcmp(expected, SharedBlock().bytes, sizeof expected));
    h.manager.reset();
    ExpectFields({{0, 2, 0x0001}});
}

// The first output waits for a tick, is made in full once, and a second call adds nothing.
TEST(FrameManager, FirstOutputOncePerRun) {
    ManagerHarness h;
    const std::string tickFile = h.env.WriteFile("tick", "");
    ScopedEnv tick("HOST_SYSTICK_FILE", tickFile);
    ScopedEnv serial("HOST_SERIAL_NUMBER", "SN-4711");
    ASSERT_TRUE(h.Prepare());

    h.manager->InitializeStore();
    EXPECT_FALSE(gStoreInitialized);
    h.env.WriteFile("tick", "1234");
    h.manager->InitializeStore();
    EXPECT_TRUE(gStoreInitialized);
    h.env.WriteFile("tick", "1300");
    h.manager->InitializeStore();

    // The start-up records, in their order, each once and (but the first) stamped with the
    // first valid tick.
    const std::vector<StoreRecord> records = h.Records();
    EXPECT_EQ((std::vector<std::string>{"ShutdownDataAtStartup", "Mac", "StateData",
                                        "SystemSerialNum", "Configuration"}),
              Brief(records,
                    {"ReportShutdownDataAtStartup", "ReportMac", "ReportStateData",
                     "ReportSystemSerialNum", "ReportConfiguration"},
                    {}));
    EXPECT_EQ(
        (std::vector<std::string>{"Mac 1234 false", "StateData 1234 64 true 0",
                                  "SystemSerialNum 1234 SN-4711", "Configuration 1234 false"}),
        Brief(records,
              {"ReportMac", "ReportStateData", "ReportSystemSerialNum", "ReportConfiguration"},
              {"at", "serial", "tag", "flag", "tick"}));
}

// Every pass hands the tick to the store (and the filler when forced); after Shutdown nothing
// reaches the store, even in simulator mode.
TEST(FrameManager, PeriodicWorkStopsAtShutdown) {
    ManagerHarness h;
    const std::string tickFile = h.env.WriteFile("tick", "100");
    ScopedEnv tick("HOST_SYSTICK_FILE", tickFile);
    ScopedEnv force("FORCE_METADATA", "");
    h.manager.reset(new MetadataMgr());
    ASSERT_TRUE(h.Prepare());
    h.manager->InitializeStore();

    h.manager->PeriodicProcessing();
    EXPECT_EQ(100u, h.manager->GetLastSystemTick());
    h.env.WriteFile("tick", "250");
    h.manager->PetWatchdog();
    h.manager->PeriodicProcessing();
    EXPECT_EQ(250u, h.manager->GetLastSystemTick());
    h.env.WriteFile("tick", "300");
    EXPECT_EQ(250u, h.manager->GetLastSystemTick()) << "the store's tick, not the live one";

    const SharedBlock before;
    h.manager->Shutdown(h.ipc);
    EXPECT_TRUE(gShutdownRequested);
    gSimulatorMode = true;
    h.manager->PeriodicProcessing();
    gSimulatorMode = false;
    EXPECT_EQ(250u, h.manager->GetLastSystemTick());
    EXPECT_EQ(0, std::memcmp(before.bytes, SharedBlock().bytes, sizeof before.bytes));

    std::string error;
    std::string all;
    for (const StoreRecord& record : ReadStoreRecords(gMetadataPath, h.env.Root(), {}, &error)) {
        all += record.line + "\n";
    }
    EXPECT_EQ("", error);
    EXPECT_EQ(1u, Count(all, "Test string for filler 100\""));
    EXPECT_EQ(1u, Count(all, "Test string for filler 250\""));
    EXPECT_EQ(0u, Count(all, "Test string for filler 300"));
}

// Built against the host platform, MEDIA_ROOT moves the media root; empty or unset, it is the
// unit's own.
TEST(FrameManager, MediaRootFollowsTheHostSetting) {
    {
        TestEnv env;
        EXPECT_STREQ(env.Media().c_str(), MediaRoot());
        EXPECT_STREQ(env.Media().c_str(), KvGetenv("MEDIA_ROOT"));
    }
    ::setenv("MEDIA_ROOT", "", 1);
    EXPECT_STREQ("/mnt/hd", MediaRoot());
    ::unsetenv("MEDIA_ROOT");
    EXPECT_STREQ("/mnt/hd", MediaRoot());
    EXPECT_EQ(nullptr, KvGetenv("MEDIA_ROOT"));
}

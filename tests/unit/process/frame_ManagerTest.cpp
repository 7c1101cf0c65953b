// The manager's own life in-process: the shared block, the first output to the store, and
// the media root.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "KvCommon.h"
#include "ManagerHarness.h"
#include "MediaRoot.h"
#include "ProcessState.h"

// PreInit writes exactly the listed fields of the shared block ({offset, width, value}) and
// leaves every other byte as it was; the destructor marks the block.
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

    // The start-up records (their order is the start-up test's), each once and (but the
    // first) stamped with the first valid tick.
    EXPECT_EQ((std::vector<std::string>{"ShutdownDataAtStartup 4294967295", "Mac 1234 false",
                                        "StateData 1234 64 true 0", "SystemSerialNum 1234 SN-4711",
                                        "Configuration 1234 false"}),
              Brief(h.Records(),
                    {"ReportShutdownDataAtStartup", "ReportMac", "ReportStateData",
                     "ReportSystemSerialNum", "ReportConfiguration"},
                    {"at", "serial", "tag", "flag", "tick"}));
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

// The manager's own life in-process: shared block, request handlers, bookmark server, first
// output to the store, periodic work and shutdown.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "HostInspect.h"
#include "KvCommon.h"
#include "ManagerHarness.h"
#include "MediaRoot.h"
#include "MetadataSharedMem.h"
#include "ProcessState.h"

namespace {

template <typename V>
V At(const unsigned char* block, unsigned int offset) {
    V value;
    std::memcpy(&value, block + offset, sizeof value);
    return value;
}

size_t CountWith(const std::vector<StoreRecord>& records, const std::string& text) {
    size_t count = 0;
    for (const StoreRecord& record : records) {
        count += record.line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

}  // namespace

// PreInit writes exactly the listed fields of the shared block and leaves the rest; the
// destructor marks the block.
TEST(FrameManager, SharedBlockInitialValuesAndEndMark) {
    ManagerHarness h;
    {
        MetadataSharedMem other;
        unsigned char* block = other.MetadataItems(true);
        ASSERT_NE(nullptr, block);
        std::memset(block, 0xAA, MetadataSharedMem::kBlockSize);
    }
    ASSERT_TRUE(h.Prepare());
    unsigned char block[MetadataSharedMem::kBlockSize];
    ASSERT_TRUE(hostinspect::ReadSharedBlock(block));
    EXPECT_EQ(0x0100, At<uint16_t>(block, 0));
    for (unsigned int record : {8u, 24u}) {
        EXPECT_EQ(0, block[record]);
        EXPECT_EQ(0u, At<uint32_t>(block, record + 4));
        EXPECT_EQ(0, At<uint16_t>(block, record + 8));
        EXPECT_EQ(0u, At<uint32_t>(block, record + 12));
        EXPECT_EQ(0xAA, block[record + 1]) << "padding is not the manager's";
    }
    for (unsigned int i = 40; i < 52; ++i) {
        EXPECT_EQ(0, block[i]) << i;
    }
    EXPECT_EQ(0x07FFFFFFu, At<uint32_t>(block, 52));
    for (unsigned int record : {56u, 76u}) {
        EXPECT_EQ(0u, At<uint32_t>(block, record));
        EXPECT_EQ(0u, At<uint32_t>(block, record + 4));
        EXPECT_EQ(0, At<uint16_t>(block, record + 8));
        EXPECT_EQ(0xAA, block[record + 10]);
    }
    EXPECT_EQ(0xAA, block[2]);
    EXPECT_EQ(0xAA, block[86]);

    h.manager.reset();
    ASSERT_TRUE(hostinspect::ReadSharedBlock(block));
    EXPECT_EQ(0x0001, At<uint16_t>(block, 0));
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

    // The start-up records, in their order, each once and stamped with the first valid tick.
    std::vector<std::string> startup;
    for (const StoreRecord& record : h.Records()) {
        const std::string op = record.Op();
        if (op == "ReportShutdownDataAtStartup" || op == "ReportMac" ||
            op == "ReportSystemSerialNum" || op == "ReportConfiguration" ||
            (op == "ReportStateData" && record.Int("tag") == 64)) {
            startup.push_back(op);
            if (op != "ReportShutdownDataAtStartup") {
                EXPECT_EQ(1234, record.Int("at")) << record.line;
            }
            if (op == "ReportSystemSerialNum") {
                EXPECT_EQ("SN-4711", record.Get("serial"));
            }
            if (op == "ReportStateData") {
                EXPECT_EQ("true", record.Get("flag"));
                EXPECT_EQ(0, record.Int("tick"));
            }
        }
    }
    EXPECT_EQ(
        (std::vector<std::string>{"ReportShutdownDataAtStartup", "ReportMac", "ReportStateData",
                                  "ReportSystemSerialNum", "ReportConfiguration"}),
        startup);
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

    unsigned char before[MetadataSharedMem::kBlockSize];
    ASSERT_TRUE(hostinspect::ReadSharedBlock(before));
    h.manager->Shutdown(h.ipc);
    EXPECT_TRUE(gShutdownRequested);
    gSimulatorMode = true;
    h.manager->PeriodicProcessing();
    EXPECT_EQ(250u, h.manager->GetLastSystemTick());
    unsigned char after[MetadataSharedMem::kBlockSize];
    ASSERT_TRUE(hostinspect::ReadSharedBlock(after));
    EXPECT_EQ(0, std::memcmp(before, after, sizeof before));
    gSimulatorMode = false;

    std::string error;
    const std::vector<StoreRecord> records =
        ReadStoreRecords(gMetadataPath, h.env.Root(), {}, &error);
    EXPECT_EQ("", error);
    EXPECT_EQ(1u, CountWith(records, "Test string for filler 100"));
    EXPECT_EQ(1u, CountWith(records, "Test string for filler 250"));
    EXPECT_EQ(0u, CountWith(records, "Test string for filler 300"));
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

// Segments roll at their size, the oldest go first to keep the bound, each reads on its own;
// runs are told apart as cleanly or uncleanly ended.
#include <gtest/gtest.h>

#include <cstdlib>

#include "DataStore.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

TEST(StoreSegments, RollAtTheirSizeKeepTheBoundAndEachOpensWithTheState) {
    StoreDir dir;
    const std::size_t maxBytes = 256 * 1024;  // segments of 64 KiB
    ::setenv("METADATA_STORE_MAX_BYTES", std::to_string(maxBytes).c_str(), 1);
    DataStoreNormal store(dir.base);
    const bool opened = store.Open();
    ::unsetenv("METADATA_STORE_MAX_BYTES");
    ASSERT_TRUE(opened);
    store.TimerTick(1);
    unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
    store.ReportMac(mac, false);
    store.ReportSystemSerialNum("SERIAL-1");
    const unsigned kReports = 40000;  // about 1 MiB of records
    for (unsigned i = 0; i < kReports; ++i) {
        store.TimerTick(2 + i);
        store.ReportSpeed(1, static_cast<unsigned short>(i), true, 2 + i, e_Tag_None);
    }
    store.Close();

    const std::vector<std::string> segments = dir.Segments();
    ASSERT_GE(segments.size(), 3u);
    std::size_t total = 0;
    for (const std::string& path : segments) {
        const std::size_t size = ReadFileText(path).size();
        EXPECT_LE(size, 64u * 1024u) << path;
        total += size;
        // Each segment read alone opens with the time anchor, MAC and serial told before it
        // began, and is dated by its own anchor.
        std::string error;
        const std::vector<StoreRecord> records = ReadStoreRecords(path, dir.env.Root(), {}, &error);
        ASSERT_EQ("", error);
        ASSERT_FALSE(records.empty());
        EXPECT_EQ(0u, records[0].line.find(R"({"op":"WriteFullState",)")) << path;
        EXPECT_NE(std::string::npos,
                  records[0].line.find(R"("reason":0},{"op":"ReportMac",)"
                                       R"("mac":[1,2,3,4,5,6],"flag":false},{"op":)"
                                       R"("ReportSystemSerialNum","serial":"SERIAL-1"},)"
                                       R"({"op":"ReportSpeed",)"))
            << records[0].line;
        EXPECT_EQ("TimeAnchor", records.at(1).Op());
        EXPECT_TRUE(records[1].Has("utc"));
    }
    EXPECT_LE(total, maxBytes);
    EXPECT_GT(total, maxBytes / 2);
    // The oldest were deleted: the first left is not number 1, and the numbers run on.
    EXPECT_EQ(std::string::npos, segments[0].find(".000001.mdj"));
    const ReadResult all(dir.base);
    EXPECT_TRUE(all.problems.empty());
    ASSERT_FALSE(all.records.empty());
    // The newest report is there, whole: speed 39999 at tick 40001.
    const ReadRecord& last = all.records.back();
    ASSERT_EQ(14, last.op);
    EXPECT_EQ(std::vector<unsigned char>({1, 0x9c, 0x3f, 1, 0, 0, 0x9c, 0x41, 0, 0, 0, 0}),
              last.body);
}

TEST(StoreSegments, StartUpTellsWhetherThePreviousRunEndedCleanly) {
    StoreDir dir;
    for (bool shutdown : {true, false, true, true}) {
        DataStoreNormal store(dir.base);
        EXPECT_TRUE(store.Open());
        store.TimerTick(500);
        store.ReportShutdownDataAtStartup();
        store.ReportBookmark(600);
        if (shutdown) {
            store.ReportShutdownData();
        }
        store.Close();
    }
    EXPECT_EQ(4u, dir.Segments().size());  // one per run

    std::string error;
    const std::vector<StoreRecord> startups = WithOp(
        ReadStoreRecords(dir.base, dir.env.Root(), {}, &error), "ReportShutdownDataAtStartup");
    ASSERT_EQ("", error);
    ASSERT_EQ(4u, startups.size());
    EXPECT_EQ("false", startups[0].Get("previousRunFound"));  // the first run ever
    EXPECT_EQ("true", startups[1].Get("clean"));
    EXPECT_EQ("true", startups[2].Get("previousRunFound"));
    EXPECT_EQ("false", startups[2].Get("clean"));
    EXPECT_EQ(500, startups[2].Int("lastTick"));
    EXPECT_EQ("true", startups[3].Get("clean"));

    const ProgramResult info =
        RunProgram({ProgramPath("mdstore"), "info", dir.base}, {}, dir.env.Root());
    EXPECT_EQ(0, info.exitCode);
    EXPECT_NE(std::string::npos,
              info.out.find("start-ups: 2 after a clean shutdown, 1 after an unclean one, 1 first"))
        << info.out;
    EXPECT_NE(std::string::npos, info.out.find("shutdowns: 3")) << info.out;
}

// Segments roll at their size, the oldest go first to keep the bound, each reads on its own;
// runs are told apart as cleanly or uncleanly ended; the files read the same on any machine.
#include <gtest/gtest.h>

#include <cstdlib>

#include "DataStore.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) { ::setenv(name, value, 1); }
    ~ScopedEnv() { ::unsetenv(name_); }

private:
    const char* name_;
};

}  // namespace

TEST(StoreSegments, RollAtTheirSizeKeepTheBoundAndEachOpensWithTheState) {
    StoreDir dir;
    const std::size_t maxBytes = 256 * 1024;  // segments of 64 KiB
    ScopedEnv bound("METADATA_STORE_MAX_BYTES", "262144");
    DataStoreNormal store(dir.base);
    ASSERT_TRUE(store.Open());
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
        const std::size_t size = ReadBytes(path).size();
        EXPECT_LE(size, 64u * 1024u) << path;
        total += size;
    }
    EXPECT_LE(total, maxBytes);
    EXPECT_GT(total, maxBytes / 2);
    // The oldest were deleted: the first left is not number 1, and the numbers run on.
    EXPECT_EQ(std::string::npos, segments[0].find(".000001.mdj"));
    const ReadResult all = ReadAll(dir.base);
    EXPECT_TRUE(all.problems.empty());
    ASSERT_FALSE(all.records.empty());
    // The newest reports are all there, in order.
    const ReadRecord& last = all.records.back();
    ASSERT_EQ(14, last.op);
    EXPECT_EQ(std::vector<unsigned char>({1, 0x9c, 0x3f, 1, 0, 0, 0x9c, 0x41, 0, 0, 0, 0}),
              last.body);

    // Each segment read alone opens with the MAC and serial told before it began.
    for (const std::string& path : segments) {
        std::string error;
        const std::vector<StoreRecord> records = ReadStoreRecords(path, dir.env.Root(), {}, &error);
        ASSERT_EQ("", error);
        ASSERT_FALSE(records.empty());
        EXPECT_EQ("WriteFullState", records[0].Op());
        EXPECT_EQ("segment", records[0].Get("cause")) << path;
        EXPECT_EQ("ReportMac", records[0].Get("state.0.op"));
        EXPECT_EQ(6, records[0].Int("state.0.mac.5"));
        EXPECT_EQ("SERIAL-1", records[0].Get("state.1.serial"));
        EXPECT_EQ("ReportSpeed", records[0].Get("state.2.op"));
    }
}

TEST(StoreSegments, StartUpTellsWhetherThePreviousRunEndedCleanly) {
    StoreDir dir;
    auto run = [&](bool shutdown) {
        DataStoreNormal store(dir.base);
        EXPECT_TRUE(store.Open());
        store.TimerTick(500);
        store.ReportShutdownDataAtStartup();
        store.ReportBookmark(600);
        if (shutdown) {
            store.ReportShutdownData();
        }
        store.Close();
    };
    run(true);   // first run ever
    run(false);  // after a clean end
    run(true);   // after an unclean end
    run(true);   // after a clean end

    std::string error;
    const std::vector<StoreRecord> startups = WithOp(
        ReadStoreRecords(dir.base, dir.env.Root(), {}, &error), "ReportShutdownDataAtStartup");
    ASSERT_EQ("", error);
    ASSERT_EQ(4u, startups.size());
    EXPECT_EQ("false", startups[0].Get("previousRunFound"));
    EXPECT_EQ("true", startups[1].Get("clean"));
    EXPECT_EQ("false", startups[2].Get("clean"));
    EXPECT_EQ("true", startups[2].Get("previousRunFound"));
    EXPECT_EQ(500, startups[2].Int("lastTick"));
    EXPECT_EQ("true", startups[3].Get("clean"));
    EXPECT_EQ(4u, dir.Segments().size());  // one per run

    const ProgramResult info =
        RunProgram({ProgramPath("mdstore"), "info", dir.base}, {}, dir.env.Root());
    EXPECT_EQ(0, info.exitCode);
    EXPECT_NE(std::string::npos,
              info.out.find("start-ups: 2 after a clean shutdown, 1 after an unclean one, 1 first"))
        << info.out;
    EXPECT_NE(std::string::npos, info.out.find("shutdowns: 3")) << info.out;
}

TEST(StoreSegments, FilesReadTheSameWithTheNativeTool) {
    const std::string hostTool = HostToolPath("mdstore");
    if (hostTool.empty() || hostTool == ProgramPath("mdstore")) {
        GTEST_SKIP() << "no native mdstore to compare with (only the cross build runs this)";
    }
    StoreDir dir;
    {
        DataStoreNormal store(dir.base);
        ASSERT_TRUE(store.Open());
        store.TimerTick(0x01020304u);
        store.ReportShutdownDataAtStartup();
        GpsStatusItem gps;
        gps.latDegrees = 0x1234;
        gps.latMinuteFraction = 0x89ABCDEFu;
        gps.altitude = -2;
        gps.tick = 0xFEDCBA98u;
        store.ReportGps(gps, 0x01020305u, true);
        store.ReportTemp(e_Temp_3, -300, false, 0x01020306u);
        store.ReportLvsState(e_Stream_1, 3, true, true, 0x0A000005u, 8554, true, 7);
        VideoMgrStreamQualityItem quality;
        quality.streams[3].frameRate = 0xBEEF;
        store.ReportStreamQualityItem(quality, true);
        store.WriteFullState(true);
        store.ReportShutdownData();
        store.Close();
    }
    const ProgramResult native =
        RunProgram({hostTool, "cat", "--json", dir.base}, {}, dir.env.Root());
    const ProgramResult cross =
        RunProgram({ProgramPath("mdstore"), "cat", "--json", dir.base}, {}, dir.env.Root());
    ASSERT_EQ(0, native.exitCode) << native.err;
    ASSERT_EQ(0, cross.exitCode) << cross.err;
    EXPECT_FALSE(native.out.empty());
    EXPECT_EQ(cross.out, native.out);
    EXPECT_NE(std::string::npos, native.out.find("\"latMinuteFraction\":2309737967"));
    EXPECT_EQ(0, RunProgram({hostTool, "verify", dir.base}, {}, dir.env.Root()).exitCode);
}

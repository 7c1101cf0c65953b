// Copies of a tick range: a new file that opens with the state as of the range's start.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "DataStore.h"
#include "MetadataReader.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"
#include "Watchdog.h"

namespace {

// Ticks 1000 to 10000 in steps of 100: a state record and a bookmark at each; the brakes
// toggle, and the officer changes once, at 2500.
void WriteTimeline(const std::string& base) {
    DataStoreNormal store(base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(900);
    store.ReportShutdownDataAtStartup();
    Officer first;
    first.name.Set("Early");
    store.ReportOfficerInfo(first, false);
    for (unsigned tick = 1000; tick <= 10000; tick += 100) {
        store.TimerTick(tick);
        if (tick == 2500) {
            Officer later;
            later.name.Set("Later");
            store.ReportOfficerInfo(later, true);
        }
        store.ReportStateData((tick / 100) % 2 == 0 ? e_Tag_BrakesOn : e_Tag_BrakesOff, true, tick);
        store.ReportBookmark(tick);
    }
    store.ReportShutdownData();
    store.Close();
}

}  // namespace

TEST(StoreCopy, ARangeCopyHoldsTheStateAtItsStartAndExactlyTheRecordsInside) {
    StoreDir dir;
    WriteTimeline(dir.base);
    Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
    ASSERT_TRUE(watchdog.Subscribe(10));
    const unsigned int petsBefore = watchdog.PetCount();

    const std::string copy = dir.env.Path("clip.mdj");
    MetadataReader reader;
    ASSERT_TRUE(reader.ReadToNewFile(dir.base, copy, 3000, 6000, &watchdog));
    EXPECT_GT(watchdog.PetCount(), petsBefore);

    std::string error;
    const std::vector<StoreRecord> records = ReadStoreRecords(copy, dir.env.Root(), {}, &error);
    ASSERT_EQ("", error);
    ASSERT_FALSE(records.empty());
    const StoreRecord& opening = records[0];
    EXPECT_EQ("WriteFullState", opening.Op());
    EXPECT_EQ("copy", opening.Get("cause"));
    EXPECT_EQ(3000, opening.Int("at"));
    // As of 3000: the officer changed at 2500, the last brake records were at 2900 and 2800.
    std::map<std::string, std::string> state;
    for (unsigned i = 0; opening.Has("state." + std::to_string(i) + ".op"); ++i) {
        const std::string prefix = "state." + std::to_string(i) + ".";
        const std::string op = opening.Get(prefix + "op");
        if (op == "ReportOfficerInfo") {
            state[op] = opening.Get(prefix + "item.name");
        } else if (op == "ReportStateData") {
            state[op + opening.Get(prefix + "tag")] = opening.Get(prefix + "tick");
        } else {
            state[op] = opening.Get(prefix + "tick");
        }
    }
    EXPECT_EQ("Later", state["ReportOfficerInfo"]);
    EXPECT_EQ("2800", state["ReportStateData56"]);
    EXPECT_EQ("2900", state["ReportStateData57"]);
    EXPECT_EQ("2900", state["ReportBookmark"]);
    EXPECT_EQ(1u, state.count("ReportShutdownDataAtStartup"));

    // Then both ends included, nothing outside.
    ASSERT_EQ(1u + 2u * 31u, records.size());
    for (std::size_t i = 1; i < records.size(); ++i) {
        EXPECT_EQ(static_cast<long long>(3000 + (i - 1) / 2 * 100), records[i].Int("tick"))
            << records[i].line;
    }
    const ReadResult copied = ReadAll(copy);
    EXPECT_TRUE(copied.problems.empty());

    // The same through mdstore copy; the file reads alike.
    const std::string viaTool = dir.env.Path("tool.mdj");
    const ProgramResult result = RunProgram(
        {ProgramPath("mdstore"), "copy", dir.base, viaTool, "--from", "3000", "--to", "6000"}, {},
        dir.env.Root());
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(ReadBytes(copy), ReadBytes(viaTool));
    EXPECT_EQ(0,
              RunProgram({ProgramPath("mdstore"), "verify", viaTool}, {}, dir.env.Root()).exitCode);

    // An empty range still gives the state as of its start, and nothing else.
    const std::string empty = dir.env.Path("empty.mdj");
    ASSERT_TRUE(reader.ReadToNewFile(dir.base, empty, 20000, 30000, nullptr));
    const ReadResult emptyRead = ReadAll(empty);
    ASSERT_EQ(1u, emptyRead.records.size());
    EXPECT_EQ(3, emptyRead.records[0].op);
}

TEST(StoreCopy, RefusesExistingFilesLinksMissingDirectoriesAndEmptyStores) {
    StoreDir dir;
    WriteTimeline(dir.base);
    MetadataReader reader;

    const std::string existing = dir.env.WriteFile("existing.mdj", "keep me");
    EXPECT_FALSE(reader.ReadToNewFile(dir.base, existing, 0, 0xFFFFFFFFu, nullptr));
    EXPECT_EQ("keep me", ReadFileText(existing));

    const std::string target = dir.env.WriteFile("target.txt", "target");
    const std::string link = dir.env.Path("link.mdj");
    ASSERT_EQ(0, ::symlink(target.c_str(), link.c_str()));
    EXPECT_FALSE(reader.ReadToNewFile(dir.base, link, 0, 0xFFFFFFFFu, nullptr));
    EXPECT_EQ("target", ReadFileText(target));

    const std::string dangling = dir.env.Path("dangling.mdj");
    const std::string wouldBe = dir.env.Path("would-be-created.mdj");
    ASSERT_EQ(0, ::symlink(wouldBe.c_str(), dangling.c_str()));
    EXPECT_FALSE(reader.ReadToNewFile(dir.base, dangling, 0, 0xFFFFFFFFu, nullptr));
    EXPECT_NE(0, ::access(wouldBe.c_str(), F_OK));

    const std::string noDir = dir.env.Path("no/such/dir/clip.mdj");
    EXPECT_FALSE(reader.ReadToNewFile(dir.base, noDir, 0, 0xFFFFFFFFu, nullptr));

    const std::string reversed = dir.env.Path("reversed.mdj");
    EXPECT_FALSE(reader.ReadToNewFile(dir.base, reversed, 5000, 4000, nullptr));
    EXPECT_NE(0, ::access(reversed.c_str(), F_OK));

    const std::string fromNothing = dir.env.Path("nothing.mdj");
    EXPECT_FALSE(reader.ReadToNewFile(dir.env.Path("absent/metadata"), fromNothing, 0, 1, nullptr));
    EXPECT_NE(0, ::access(fromNothing.c_str(), F_OK));

    const std::string mdstore = ProgramPath("mdstore");
    EXPECT_EQ(2, RunProgram({mdstore, "copy", dir.base, existing}, {}, dir.env.Root()).exitCode);
    EXPECT_EQ(1, RunProgram({mdstore, "copy", dir.base}, {}, dir.env.Root()).exitCode);
    EXPECT_EQ(1,
              RunProgram({mdstore, "copy", dir.base, reversed, "--from", "x"}, {}, dir.env.Root())
                  .exitCode);
}

// Senders stamp their own ticks, so a record from before the range can arrive after one inside
// it; the copy keeps it rather than losing it from both the opening state and the range.
TEST(StoreCopy, ALateRecordFromBeforeTheRangeIsKept) {
    StoreDir dir;
    {
        DataStoreNormal store(dir.base);
        ASSERT_TRUE(store.Open());
        store.TimerTick(990);
        store.ReportStateData(e_Tag_BrakesOn, true, 995);
        store.ReportStateData(e_Tag_SirenOn, true, 1001);
        store.ReportStateData(e_Tag_LightsOn, true, 999);
        store.ReportStateData(e_Tag_SirenOff, true, 3000);
        store.Close();
    }
    const std::string copy = dir.env.Path("clip.mdj");
    MetadataReader reader;
    ASSERT_TRUE(reader.ReadToNewFile(dir.base, copy, 1000, 2000, nullptr));
    std::string error;
    const std::vector<StoreRecord> records = ReadStoreRecords(copy, dir.env.Root(), {}, &error);
    ASSERT_EQ("", error);
    ASSERT_EQ(3u, records.size());
    EXPECT_EQ("WriteFullState", records[0].Op());
    EXPECT_NE(std::string::npos, records[0].line.find("\"tick\":995")) << records[0].line;
    EXPECT_EQ(1001, records[1].Int("tick"));
    EXPECT_EQ(999, records[2].Int("tick"));
}

// Copies of a tick range: a new file that opens with the state as of the range's start.
#include <gtest/gtest.h>

#include <unistd.h>

#include "DataStore.h"
#include "MetadataReader.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"
#include "Watchdog.h"

namespace {

// Ticks 1000 to 10000 in steps of 100: a state record and a bookmark at each; the brakes
// toggle, the officer changes once, at 2500, and the lights come on late, at 6000.
void WriteTimeline(const std::string& base) {
    DataStoreNormal store(base);
    ASSERT_TRUE(store.Open());
    store.TimerTick(900);
    store.ReportShutdownDataAtStartup();
    Officer officer;
    officer.name.Set("Early");
    store.ReportOfficerInfo(officer, false);
    for (unsigned tick = 1000; tick <= 10000; tick += 100) {
        store.TimerTick(tick);
        if (tick == 2500) {
            officer.name.Set("Later");
            store.ReportOfficerInfo(officer, true);
        }
        store.ReportStateData((tick / 100) % 2 == 0 ? e_Tag_BrakesOn : e_Tag_BrakesOff, true, tick);
        store.ReportBookmark(tick);
        if (tick == 6000) {
            // Senders stamp their own ticks: one from before a range can come after its end.
            store.ReportStateData(e_Tag_LightsOn, true, 2950);
        }
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
    ASSERT_EQ(1u + 2u * 31u + 1u, records.size());
    const StoreRecord& opening = records[0];
    // As of 3000: the officer changed at 2500, the last brake records were at 2900 and 2800.
    for (const char* entry :
         {R"({"op":"WriteFullState","at":3000,"force":false,"cause":"copy","state":[)"
          R"({"op":"ReportShutdownDataAtStartup",)",
          R"({"op":"ReportOfficerInfo","item":{"officerId":"","name":"Later"},"flag":true})",
          R"({"op":"ReportStateData","tag":56,"flag":true,"tick":2800})",
          R"({"op":"ReportStateData","tag":57,"flag":true,"tick":2900})",
          R"({"op":"ReportBookmark","tick":2900})"}) {
        EXPECT_NE(std::string::npos, opening.line.find(entry)) << entry << "\n" << opening.line;
    }
    EXPECT_EQ(std::string::npos, opening.line.find("Early")) << opening.line;
    // Then both ends included, nothing outside, and the late record is kept rather than lost
    // from both the opening state and the range.
    EXPECT_EQ(2950, records.back().Int("tick"));
    for (std::size_t i = 1; i + 1 < records.size(); ++i) {
        EXPECT_EQ(static_cast<long long>(3000 + (i - 1) / 2 * 100), records[i].Int("tick"))
            << records[i].line;
    }

    // The same through mdstore copy; the file reads alike and checks out.
    const std::string mdstore = ProgramPath("mdstore");
    const std::string viaTool = dir.env.Path("tool.mdj");
    const ProgramResult result = RunProgram(
        {mdstore, "copy", dir.base, viaTool, "--from", "3000", "--to", "6000"}, {}, dir.env.Root());
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(ReadFileText(copy), ReadFileText(viaTool));
    EXPECT_EQ(0, RunProgram({mdstore, "verify", viaTool}, {}, dir.env.Root()).exitCode);
    // Only the bookmarks of the range, after the whole state.
    const std::string marks = dir.env.Path("marks.mdj");
    ASSERT_EQ(0, RunProgram({mdstore, "copy", "--kind=ReportBookmark", "--from=3000", "--to=3200",
                             dir.base, marks},
                            {}, dir.env.Root())
                     .exitCode);
    std::string ops;
    for (const StoreRecord& record : ReadStoreRecords(marks, dir.env.Root())) {
        ops += record.Op() + " ";
    }
    EXPECT_EQ("WriteFullState ReportBookmark ReportBookmark ReportBookmark ", ops);

    // An empty range still gives the state as of its start, and nothing else.
    const std::string empty = dir.env.Path("empty.mdj");
    ASSERT_TRUE(reader.ReadToNewFile(dir.base, empty, 20000, 30000, nullptr));
    const ReadResult emptyRead(empty);
    ASSERT_EQ(1u, emptyRead.records.size());
    EXPECT_EQ(3, emptyRead.records[0].op);
}

TEST(StoreCopy, RefusesExistingFilesLinksMissingDirectoriesReversedRangesAndEmptyStores) {
    StoreDir dir;
    WriteTimeline(dir.base);
    const std::string existing = dir.env.WriteFile("existing.mdj", "keep me");
    const std::string target = dir.env.WriteFile("target.txt", "target");
    const std::string link = dir.env.Path("link.mdj");
    const std::string dangling = dir.env.Path("dangling.mdj");
    const std::string wouldBe = dir.env.Path("would-be-created.mdj");
    ASSERT_EQ(0, ::symlink(target.c_str(), link.c_str()));
    ASSERT_EQ(0, ::symlink(wouldBe.c_str(), dangling.c_str()));
    MetadataReader reader;
    for (const std::string& to : {existing, link, dangling, dir.env.Path("no/such/dir/c.mdj")}) {
        EXPECT_FALSE(reader.ReadToNewFile(dir.base, to, 0, 0xFFFFFFFFu, nullptr)) << to;
    }
    EXPECT_EQ("keep me", ReadFileText(existing));
    EXPECT_EQ("target", ReadFileText(target));
    EXPECT_NE(0, ::access(wouldBe.c_str(), F_OK));
    const std::string fresh = dir.env.Path("fresh.mdj");
    EXPECT_FALSE(reader.ReadToNewFile(dir.base, fresh, 5000, 4000, nullptr));
    EXPECT_FALSE(reader.ReadToNewFile(dir.env.Path("absent/metadata"), fresh, 0, 1, nullptr));
    EXPECT_NE(0, ::access(fresh.c_str(), F_OK));

    const std::string mdstore = ProgramPath("mdstore");
    EXPECT_EQ(2, RunProgram({mdstore, "copy", dir.base, existing}, {}, dir.env.Root()).exitCode);
    EXPECT_EQ(1, RunProgram({mdstore, "copy", dir.base}, {}, dir.env.Root()).exitCode);
    const ProgramResult usage =
        RunProgram({mdstore, "copy", dir.base, fresh, "--from=x"}, {}, dir.env.Root());
    EXPECT_EQ(1, usage.exitCode);
    EXPECT_EQ(
        "mdstore: copy: --from=x needs a tick (0 to 4294967295) (mdstore copy --help for "
        "usage)\n",
        usage.err);
}

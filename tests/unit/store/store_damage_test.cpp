// A power cut or a bad flash page must never make the files lie: a torn tail is cut off, damage
// is reported, and every good record around it is still read.
#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>

#include "DataStore.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

// A closed store of one segment with a spread of record kinds and sizes.
std::string WriteSmallStore(StoreDir& dir, unsigned bookmarks) {
    DataStoreNormal store(dir.base);
    EXPECT_TRUE(store.Open());
    store.TimerTick(1000);
    store.ReportShutdownDataAtStartup();
    Officer officer;
    officer.name.Set("Jones");
    store.ReportOfficerInfo(officer, true);
    for (unsigned i = 0; i < bookmarks; ++i) {
        store.ReportBookmark(1000 + i);
        store.ReportTemp(e_Temp_1, static_cast<short>(-static_cast<int>(i)), true, 1000 + i);
    }
    store.Close();
    EXPECT_EQ(1u, dir.Segments().size());
    return dir.Segments().empty() ? std::string() : dir.Segments()[0];
}

}  // namespace

TEST(StoreDamage, AJournalCutAnywhereReadsEveryRecordBeforeTheCutAndOpenCutsTheTail) {
    StoreDir dir;
    const std::string segment = WriteSmallStore(dir, 12);
    const std::vector<unsigned char> whole = ReadBytes(segment);
    const ReadResult original = ReadAll(segment);
    ASSERT_TRUE(original.problems.empty());
    ASSERT_EQ(27u, original.records.size());

    // Record ends, to know how many records a cut leaves whole.
    std::vector<std::size_t> ends;
    std::size_t end = 16;
    for (const ReadRecord& r : original.records) {
        end += 16 + r.body.size();
        ends.push_back(end);
    }
    ASSERT_EQ(whole.size(), ends.back());

    const std::string cutPath = dir.env.Path("cut.mdj");
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        WriteBytes(cutPath, std::vector<unsigned char>(whole.begin(), whole.begin() + cut));
        const ReadResult read = ReadAll(cutPath);
        std::size_t wholeRecords = 0;
        while (wholeRecords < ends.size() && ends[wholeRecords] <= cut) {
            ++wholeRecords;
        }
        ASSERT_EQ(wholeRecords, read.records.size()) << "cut at " << cut;
        for (std::size_t i = 0; i < wholeRecords; ++i) {
            ASSERT_TRUE(original.records[i] == read.records[i]) << "cut at " << cut;
        }
        const bool onBoundary = cut == 16 || (wholeRecords > 0 && ends[wholeRecords - 1] == cut);
        ASSERT_EQ(onBoundary ? 0u : 1u, read.problems.size()) << "cut at " << cut;
    }

    // A store whose last segment was cut mid-record: Open cuts it back to the last whole
    // record, tells that the run before ended uncleanly, and goes on in a new segment.
    for (std::size_t cut : {ends[5] + 3, ends[20] + 17, ends.back() - 1}) {
        StoreDir torn;
        const std::string tornSegment = WriteSmallStore(torn, 12);
        WriteBytes(tornSegment, std::vector<unsigned char>(whole.begin(), whole.begin() + cut));
        DataStoreNormal store(torn.base);
        ASSERT_TRUE(store.Open());
        store.ReportShutdownDataAtStartup();
        store.Close();
        const std::size_t good = *(std::upper_bound(ends.begin(), ends.end(), cut) - 1);
        EXPECT_EQ(good, ReadBytes(tornSegment).size()) << "cut at " << cut;
        const ReadResult after = ReadAll(torn.base);
        EXPECT_TRUE(after.problems.empty());
        ASSERT_FALSE(after.records.empty());
        const ReadRecord& startup = after.records.back();
        ASSERT_EQ(1, startup.op);
        EXPECT_EQ(1, startup.body[0]);  // a previous run was found
        EXPECT_EQ(0, startup.body[1]);  // and it did not end cleanly
    }
}

TEST(StoreDamage, EveryFlippedBitIsNoticedAndReadingResumesAfterIt) {
    StoreDir dir;
    const std::string segment = WriteSmallStore(dir, 2);
    const std::vector<unsigned char> whole = ReadBytes(segment);
    const ReadResult original = ReadAll(segment);
    ASSERT_TRUE(original.problems.empty());
    const std::string flippedPath = dir.env.Path("flipped.mdj");
    for (std::size_t byte = 0; byte < whole.size(); ++byte) {
        for (int bit = 0; bit < 8; ++bit) {
            std::vector<unsigned char> flipped = whole;
            flipped[byte] = static_cast<unsigned char>(flipped[byte] ^ (1u << bit));
            WriteBytes(flippedPath, flipped);
            const ReadResult read = ReadAll(flippedPath);
            ASSERT_FALSE(read.problems.empty()) << "byte " << byte << " bit " << bit;
            // Nothing misread: whatever is read is a record that was written.
            for (const ReadRecord& r : read.records) {
                ASSERT_NE(original.records.end(),
                          std::find(original.records.begin(), original.records.end(), r))
                    << "byte " << byte << " bit " << bit;
            }
            // At most the one record holding the bit is lost.
            ASSERT_GE(read.records.size() + 1, original.records.size())
                << "byte " << byte << " bit " << bit;
        }
    }

    // Garbage over the middle of a larger store: reported, and the records after it are read.
    StoreDir big;
    const std::string bigSegment = WriteSmallStore(big, 40);
    std::vector<unsigned char> bytes = ReadBytes(bigSegment);
    const ReadResult before = ReadAll(bigSegment);
    for (std::size_t i = 700; i < 760; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7);
    }
    WriteBytes(bigSegment, bytes);
    const ReadResult after = ReadAll(big.base);
    ASSERT_EQ(1u, after.problems.size());
    EXPECT_EQ(mdj::Problem::kDamage, after.problems[0]);
    EXPECT_GE(after.records.size() + 4, before.records.size());
    EXPECT_TRUE(after.records.back() == before.records.back());

    const std::string mdstore = ProgramPath("mdstore");
    EXPECT_EQ(2, RunProgram({mdstore, "verify", big.base}, {}, big.env.Root()).exitCode);
    EXPECT_EQ(0, RunProgram({mdstore, "verify", dir.base}, {}, dir.env.Root()).exitCode);
    const ProgramResult info = RunProgram({mdstore, "info", big.base}, {}, big.env.Root());
    EXPECT_EQ(0, info.exitCode);
    EXPECT_NE(std::string::npos, info.out.find("damage: 1 places")) << info.out;
    // cat still prints every good record and names the damage on standard error.
    std::string error;
    EXPECT_EQ(after.records.size(), ReadStoreRecords(big.base, big.env.Root(), {}, &error).size());
    EXPECT_EQ("", error);
}

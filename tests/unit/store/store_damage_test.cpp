// A power cut or a bad flash page must never make the files lie: a torn tail is cut off, damage
// is reported, and every good record around it is still read.
#include <gtest/gtest.h>

#include <algorithm>

#include "DataStore.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

// A closed store of one segment with a spread of record kinds and sizes; returns the segment.
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
    return dir.Segments().at(0);
}

}  // namespace

TEST(StoreDamage, AJournalCutAnywhereReadsEveryRecordBeforeTheCutAndOpenCutsTheTail) {
    StoreDir dir;
    const std::string segment = WriteSmallStore(dir, 12);
    const std::string whole = ReadFileText(segment);
    const ReadResult original(segment);
    ASSERT_TRUE(original.problems.empty());
    ASSERT_EQ(28u, original.records.size());  // with the time anchor
    ASSERT_EQ(whole.size(), original.records.back().end);

    const std::string cutPath = dir.env.Path("cut.mdj");
    for (std::size_t cut = 0, count = 0; cut < whole.size(); ++cut) {
        count += original.records[count].end == cut ? 1 : 0;  // the records whole before the cut
        WriteBytes(cutPath, whole.substr(0, cut));
        const ReadResult read(cutPath);
        ASSERT_EQ(count, read.records.size()) << "cut at " << cut;
        ASSERT_TRUE(std::equal(read.records.begin(), read.records.end(), original.records.begin()))
            << "cut at " << cut;
        const bool onBoundary =
            cut == mdj::kSegmentHeaderSize || (count > 0 && original.records[count - 1].end == cut);
        ASSERT_EQ(onBoundary ? 0u : 1u, read.problems.size()) << "cut at " << cut;
    }

    // A store whose last segment was cut mid-record: Open cuts it back to the last whole
    // record, tells that the run before ended uncleanly, and goes on in a new segment. A short
    // file after it is removed when it could be a header being written, else left alone; a
    // newest segment whose header is damaged is kept whole, torn end and all, and read.
    std::string damaged = whole, otherStore = whole.substr(0, 13);  // (as far as segment 2's)
    damaged[19] ^= 3;    // names segment 2, with the CRC of the header naming 1
    otherStore[9] ^= 1;  // another identity
    std::string magicless = damaged;
    magicless[0] ^= 1;  // still names this store and segment 2
    const std::size_t end = whole.size();
    const struct {
        std::size_t good, torn;  // segment 1: its good records and a torn end
        std::string next;        // segment 2
        bool kept;               // else removed (and made anew)
        std::size_t problems;
    } stores[] = {
        {original.records[5].end, 3, "", false, 0},
        {original.records[20].end, 17, std::string(10, '\0'), false, 0},
        {original.records[26].end, 5, whole.substr(0, 13), false, 0},
        {end, 0, damaged.substr(0, end - 3), true, 2},
        {end, 0, damaged.substr(0, mdj::kSegmentHeaderSize), true, 1},
        {end, 0, magicless.substr(0, mdj::kSegmentHeaderSize), true, 1},
        {end, 0, "garbage", true, 0},
        {end, 0, otherStore, true, 0},
    };
    for (const auto& s : stores) {
        StoreDir torn;
        const std::string first = mdj::SegmentPath(torn.base, 1),
                          next = mdj::SegmentPath(torn.base, 2);
        WriteBytes(first, whole.substr(0, s.good + s.torn));
        WriteBytes(next, s.next);
        DataStoreNormal store(torn.base);
        ASSERT_TRUE(store.Open());
        store.ReportShutdownDataAtStartup();
        store.Close();
        EXPECT_EQ(s.good, ReadFileText(first).size()) << s.torn;
        EXPECT_EQ(s.kept, ReadFileText(next) == s.next) << s.next.size();
        const std::string newest = torn.Segments().back();
        EXPECT_EQ(mdj::SegmentPath(torn.base, s.kept ? 3 : 2), newest);
        const ReadResult after(torn.base);
        EXPECT_EQ(s.problems, after.problems.size()) << s.next.size();
        EXPECT_EQ(ReadResult(first).records.size() + ReadResult(newest).records.size() +
                      (s.kept ? ReadResult(next).records.size() : 0),
                  after.records.size());
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
    const std::string whole = ReadFileText(segment);
    const ReadResult original(segment);
    ASSERT_TRUE(original.problems.empty());
    const std::string flippedPath = dir.env.Path("flipped.mdj");
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        std::string flipped = whole;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        WriteBytes(flippedPath, flipped);
        const ReadResult read(flippedPath);
        ASSERT_FALSE(read.problems.empty()) << "bit " << bit;
        // Nothing misread: whatever is read is a record that was written, where it was written;
        // at most the one record holding the bit is lost.
        for (const ReadRecord& r : read.records) {
            ASSERT_NE(original.records.end(),
                      std::find(original.records.begin(), original.records.end(), r))
                << "bit " << bit;
        }
        ASSERT_GE(read.records.size() + 1, original.records.size()) << "bit " << bit;
    }

    // Garbage over the middle of a larger store: reported, and the records after it are read.
    StoreDir big;
    const std::string bigSegment = WriteSmallStore(big, 40);
    std::string bytes = ReadFileText(bigSegment);
    const ReadResult before(bigSegment);
    for (std::size_t i = 700; i < 760; ++i) {
        bytes[i] = static_cast<char>(i * 7);
    }
    WriteBytes(bigSegment, bytes);
    const ReadResult after(big.base);
    ASSERT_EQ(1u, after.problems.size());
    EXPECT_EQ(mdj::Problem::kDamage, after.problems[0]);
    EXPECT_GE(after.records.size() + 4, before.records.size());
    EXPECT_TRUE(after.records.back() == before.records.back());

    EXPECT_EQ(2, RunMdstore({"verify", big.base}, big.env.Root()).exitCode);
    EXPECT_EQ(0, RunMdstore({"verify", dir.base}, dir.env.Root()).exitCode);
    const ProgramResult info = RunMdstore({"info", big.base}, big.env.Root());
    EXPECT_EQ(0, info.exitCode);
    EXPECT_NE(std::string::npos, info.out.find("damage: 1 places")) << info.out;
    // verify names each kind of damage where it lies; a file without the magic is no segment
    // of the store (its files are told apart by it) and is named, not judged.
    const struct {
        std::string bytes;  // the segment's new contents
        int exit;
        std::string says;
    } damages[] = {
        {whole.substr(0, whole.size() - 3), 2, "torn or damaged end at offset"},
        {std::string(1, static_cast<char>(whole[0] ^ 1)) + whole.substr(1), 0,
         "foreign file " + segment + ": no segment header of this format"},
        {"garbage", 0, "foreign file " + segment + ": no segment header of this format"},
        {whole.substr(0, 6) + static_cast<char>(whole[6] ^ 4) + whole.substr(7), 2,
         "DAMAGE " + segment + ": damaged segment header at offset 0"},
    };
    for (const auto& d : damages) {
        WriteBytes(segment, d.bytes);
        const ProgramResult verify = RunMdstore({"verify", dir.base}, dir.env.Root());
        EXPECT_EQ(d.exit, verify.exitCode) << verify.out;
        EXPECT_NE(std::string::npos, verify.out.find(d.says)) << verify.out;
    }

    // cat still prints every good record (and names the damage on standard error).
    std::string error;
    EXPECT_EQ(after.records.size(), ReadStoreRecords(big.base, big.env.Root(), {}, &error).size());
    EXPECT_EQ("", error);
}

namespace {

// Every record (its whole frame) and every trouble the reader tells, at its file offset.
struct Told : mdj::JournalSink {
    explicit Told(std::size_t stop) : stopAfter(stop) {}
    std::size_t stopAfter;  // events told before a record that asks to stop
    std::vector<std::string> events;
    bool Record(const mdj::SegmentFile&, const mdj::RecordView& r) override {
        events.push_back(std::to_string(r.offset) + ":" +
                         std::string(r.body - mdj::kFrameHeaderSize, r.body + r.size));
        return events.size() < stopAfter;
    }
    void Trouble(const mdj::SegmentFile&, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        events.push_back(std::string(mdj::ProblemName(problem)) + " at " + std::to_string(offset) +
                         "+" + std::to_string(length));
    }
};

// The file through windows of every size in `windows` tells what the whole file in memory does.
void ExpectWindowsReadAsWhole(const std::string& bytes, std::vector<std::size_t> windows,
                              const std::string& path, std::size_t stopAfter = SIZE_MAX) {
    Told whole(stopAfter);
    mdj::SegmentFile file;
    mdj::SegmentScanner scanner(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    if (!scanner.HeaderOk() && bytes.size() >= mdj::kSegmentHeaderSize) {
        whole.Trouble(file, mdj::Problem::kBadHeader, 0, mdj::kSegmentHeaderSize);
    }
    mdj::ScanRecords(file, scanner, whole);
    WriteBytes(path, bytes);
    file.path = path;
    for (std::size_t window : windows) {
        Told windowed(stopAfter);
        std::vector<unsigned char> held;
        mdj::ReadSegment(file, false, held, windowed, window);
        const std::size_t same =
            static_cast<std::size_t>(std::mismatch(whole.events.begin(), whole.events.end(),
                                                   windowed.events.begin(), windowed.events.end())
                                         .first -
                                     whole.events.begin());
        ASSERT_EQ(whole.events.size(), same) << "window " << window << " of " << bytes.size()
                                             << " bytes: first differing event " << same;
        ASSERT_EQ(whole.events.size(), windowed.events.size()) << "window " << window;
        ASSERT_LE(held.size(), std::max(window, mdj::kFrameHeaderSize + mdj::kMaxRecordBody));
    }
}

}  // namespace

// A reader holds a window of the file, not the file; wherever the window's edges fall (in a
// frame, in damage, at a torn end, at the file's end) it reads what the whole file held reads.
TEST(StoreDamage, AReaderWindowReadsWhatTheWholeFileReads) {
    StoreDir dir;
    const std::string whole = ReadFileText(WriteSmallStore(dir, 12));
    const std::string path = dir.env.Path("window.mdj");
    const std::vector<std::size_t> windows = {1, 40, 64, 257};
    // A magic with a long length in the garbage: the window must reach far ahead to refute it.
    const std::string garbage("\xC3\x5A\x07\x00\x00\x10\x00\x00\xC3\x5A\x00\x00\xC3", 13);
    for (std::size_t at = 0; at <= whole.size(); ++at) {
        ExpectWindowsReadAsWhole(whole.substr(0, at), windows, path);
        std::string damaged = whole;
        damaged.replace(at, garbage.size(), garbage);
        ExpectWindowsReadAsWhole(damaged, windows, path);
        ExpectWindowsReadAsWhole(damaged, windows, path, at % 29);
    }
    // A file of several default windows, damaged across the first window's end and torn.
    std::string big = whole;
    while (big.size() < 3 * mdj::SegmentWindow::kDefaultBytes) {
        big.append(whole, mdj::kSegmentHeaderSize, std::string::npos);
    }
    big.replace(mdj::SegmentWindow::kDefaultBytes - 6, garbage.size(), garbage);
    big.resize(big.size() - 5);
    ExpectWindowsReadAsWhole(big, {mdj::SegmentWindow::kDefaultBytes}, path);
}

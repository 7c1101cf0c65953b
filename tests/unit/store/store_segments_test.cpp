// Segments roll at their size, the oldest go first to keep the bound, each reads on its own;
// runs are told apart as cleanly or uncleanly ended; a failing disk is told, episode by episode.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <thread>

#include "DataStore.h"
#include "DataStoreJournal.h"
#include "PendingWrites.h"
#include "RangeCopy.h"
#include "SegmentFiles.h"
#include "SegmentIndex.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

const std::size_t kMaxBytes = 1024 * 1024;  // segments of 128 KiB, index blocks of 64 KiB

// Writes about 1.3 MiB of speed reports into a store bounded at kMaxBytes through two episodes
// of a full disk (the file size limit: EFBIG, its signal ignored), each told as it starts and as
// it ends, then a roll that cannot make its segment (the next names taken): that segment runs
// over its size until they are free again, and nothing is lost.
void WriteThroughFailures(StoreDir& dir, std::string& overrun) {
    ::setenv("METADATA_STORE_MAX_BYTES", std::to_string(kMaxBytes).c_str(), 1);
    DataStoreNormal store(dir.base);
    const bool opened = store.Open();
    ::unsetenv("METADATA_STORE_MAX_BYTES");
    ASSERT_TRUE(opened);
    store.TimerTick(1);
    unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
    store.ReportMac(mac, false);
    store.ReportSystemSerialNum("SERIAL-1");
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit normal;
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &normal));
    std::string beforeRoll;
    std::vector<std::string> taken;
    unsigned takenAt = 0;
    testing::internal::CaptureStderr();
    for (unsigned i = 0; i < 50000; ++i) {
        if (i == 30000) {
            beforeRoll = dir.Segments().back();
        } else if (i > 30000 && taken.empty() && dir.Segments().back() != beforeRoll) {
            overrun = dir.Segments().back();
            const unsigned number = std::stoul(overrun.substr(overrun.size() - 10, 6));
            for (unsigned next = number + 1; next <= number + 16; ++next) {
                taken.push_back(mdj::SegmentPath(dir.base, next));
                ASSERT_EQ(0, ::mkdir(taken.back().c_str(), 0700));
            }
            takenAt = i;
        } else if (!taken.empty() && i == takenAt + 7000) {
            for (const std::string& path : taken) {
                ASSERT_EQ(0, ::rmdir(path.c_str()));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // the roll's retry
        }
        struct rlimit limit = normal;
        struct stat info;
        if ((i == 1000 || i == 1001 || i == 2000) &&
            ::stat(dir.Segments().back().c_str(), &info) == 0) {
            limit.rlim_cur = static_cast<rlim_t>(info.st_size);
        }
        ::setrlimit(RLIMIT_FSIZE, &limit);
        if (i % 64 == 0) {
            dir.env.WriteFile("tick", std::to_string(2 + i));
        }
        store.TimerTick(2 + i);
        hostsystem::WritePending();  // as the endpoint does before it waits: the batch goes now
        ::setrlimit(RLIMIT_FSIZE, &normal);
        store.ReportSpeed(1, static_cast<unsigned short>(i), true, 2 + i, e_Tag_None);
    }
    store.Close();
    const std::string said = testing::internal::GetCapturedStderr();
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_TRUE(std::regex_match(
        said, std::regex("(DataStore: write to segment [0-9]+ failed: [^\n]*; records are dropped "
                         "until writing works again\nDataStore: writing to segment [0-9]+ works "
                         "again; [0-9]+ bytes of records were dropped\n){2}"
                         "DataStore: cannot create the segment after ([0-9]+) of [^\n]*: File "
                         "exists; writing on in segment \\2 past its size\n"
                         "DataStore: segment \\2 of [^\n]* ended at [0-9]+ bytes; rolling works "
                         "again\n")))
        << said;
}

// A copy reads only the blocks of the index its range needs, and is the same copy as one that
// reads the store from its start (the indexes removed).
void ExpectCopiesReadOnlyTheBlocksTheyNeed(const StoreDir& dir) {
    std::vector<std::pair<unsigned, unsigned>> ranges = {
        {0, 0}, {30000, 30100}, {20000, 45000}, {49000, 0xFFFFFFFFu}, {60000, 70000}};
    // Ranges that end on a block's first time or begin on its last: that block is read too.
    unsigned char header[mdj::kSegmentHeaderSize];
    const std::string segment = ReadFileText(dir.Segments().at(1));
    std::memcpy(header, segment.data(), sizeof header);
    std::vector<mdj::IndexBlock> blocks;
    mdj::LoadSegmentIndex(dir.Segments()[1], header, segment.size(), blocks);
    ASSERT_GE(blocks.size(), 2u);
    ranges.insert(ranges.end(), {{blocks[1].minTime - 50, blocks[1].minTime},
                                 {blocks[1].minTime, blocks[1].minTime},
                                 {blocks[0].maxTime, blocks[0].maxTime}});
    std::vector<std::string> indexed;
    std::vector<unsigned long long> read;
    for (const auto& [first, second] : ranges) {
        const std::string to = dir.env.Path("i" + std::to_string(indexed.size()));
        mdj::CopyResult result;
        ASSERT_TRUE(mdj::CopyRange(dir.base, to, first, second, nullptr, &result));
        indexed.push_back(ReadFileText(to).substr(mdj::kSegmentHeaderSize));
        read.push_back(result.recordsRead);
    }
    EXPECT_LT(read[1], 5000u);
    for (const std::string& path : dir.Segments()) {
        ASSERT_EQ(0, ::unlink(mdj::IndexPath(path).c_str())) << path;
    }
    for (std::size_t i = 0; i < indexed.size(); ++i) {
        const std::string to = dir.env.Path("w" + std::to_string(i));
        mdj::CopyResult result;
        ASSERT_TRUE(
            mdj::CopyRange(dir.base, to, ranges[i].first, ranges[i].second, nullptr, &result));
        EXPECT_EQ(indexed[i], ReadFileText(to).substr(mdj::kSegmentHeaderSize)) << i;
        EXPECT_LE(read[i], result.recordsRead);
    }
}

}  // namespace

TEST(StoreSegments, RollAtTheirSizeKeepTheBoundAndEachOpensWithTheState) {
    StoreDir dir;
    // The system tick follows the made-up ticks, so the time anchors fit in with the records.
    ::setenv("HOST_SYSTICK_FILE", dir.env.WriteFile("tick", "1").c_str(), 1);
    std::string overrun;
    ASSERT_NO_FATAL_FAILURE(WriteThroughFailures(dir, overrun));
    const std::vector<std::string> segments = dir.Segments();
    ASSERT_GE(segments.size(), 3u);
    std::size_t total = 0;
    for (const std::string& path : segments) {
        const std::size_t size = ReadFileText(path).size();
        EXPECT_LE(size, (path == overrun ? 2u : 1u) * 128u * 1024u) << path;
        EXPECT_EQ(path == overrun, size > 128u * 1024u) << path;
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
    EXPECT_LE(total, kMaxBytes);
    EXPECT_GT(total, kMaxBytes / 2);
    // The oldest were deleted: the first left is not number 1, and the numbers run on.
    EXPECT_EQ(std::string::npos, segments[0].find(".000001.mdj"));
    const ReadResult all(dir.base);
    EXPECT_TRUE(all.problems.empty());
    ASSERT_FALSE(all.records.empty());
    unsigned speeds = 0;
    for (const ReadRecord& record : all.records) {
        const unsigned speed = record.op == 14 ? record.body.at(1) << 8 | record.body.at(2) : 0;
        if (speed >= 30000 && speed < 45000) {
            EXPECT_EQ(30000 + speeds, speed);
            ++speeds;
        }
    }
    EXPECT_EQ(15000u, speeds);
    // The newest report is there, whole: speed 49999 at tick 50001.
    const ReadRecord& last = all.records.back();
    ASSERT_EQ(14, last.op);
    EXPECT_EQ(std::vector<unsigned char>({1, 0xc3, 0x4f, 1, 0, 0, 0xc3, 0x51, 0, 0, 0, 0}),
              last.body);
    ExpectCopiesReadOnlyTheBlocksTheyNeed(dir);
    ::unsetenv("HOST_SYSTICK_FILE");
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

    const ProgramResult info = RunMdstore({"info", dir.base}, dir.env.Root());
    EXPECT_EQ(0, info.exitCode);
    EXPECT_NE(std::string::npos,
              info.out.find("start-ups: 2 after a clean shutdown, 1 after an unclean one, 1 first"))
        << info.out;
    EXPECT_NE(std::string::npos, info.out.find("shutdowns: 3")) << info.out;
}

// A copy dropped among the segments under a segment's name belongs to another store: two
// restarts keep the real segments and tell a clean end, and verify finds no damage. It is not
// counted either: with it counted, the small bound below would remove the real segments.
TEST(StoreSegments, APlantedCopyIsNeitherAdoptedNorCountedNorRemoved) {
    StoreDir source;
    {
        DataStoreNormal store(source.base);
        ASSERT_TRUE(store.Open());
        for (unsigned i = 1; i <= 4000; ++i) {  // about 110 KiB
            store.TimerTick(i);
            store.ReportSpeed(1, static_cast<unsigned short>(i), true, i, e_Tag_None);
        }
        store.Close();
    }
    StoreDir dir;
    const std::string planted = dir.base + ".999999.mdj";
    ::setenv("METADATA_STORE_MAX_BYTES", "131072", 1);
    for (unsigned run = 0; run < 3; ++run) {
        if (run == 1) {
            ASSERT_EQ(0, RunMdstore({"copy", source.base, planted}, dir.env.Root()).exitCode);
            // A FIFO under the number before the first: never opened to wait on, never adopted.
            ASSERT_EQ(0, ::mkfifo(mdj::SegmentPath(dir.base, 0).c_str(), 0600));
        }
        DataStoreNormal store(dir.base);
        ASSERT_TRUE(store.Open());
        store.TimerTick(500 + run);
        store.ReportShutdownDataAtStartup();
        store.ReportShutdownData();
        store.Close();
    }
    ::unsetenv("METADATA_STORE_MAX_BYTES");
    const std::vector<std::string> files = dir.Segments();
    ASSERT_EQ(5u, files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(i < 4 ? mdj::SegmentPath(dir.base, static_cast<std::uint32_t>(i)) : planted,
                  files[i]);
    }
    std::string error;
    const std::vector<StoreRecord> startups = WithOp(
        ReadStoreRecords(dir.base, dir.env.Root(), {}, &error), "ReportShutdownDataAtStartup");
    ASSERT_EQ(3u, startups.size()) << error;
    EXPECT_EQ("true", startups[1].Get("clean"));
    EXPECT_EQ("true", startups[2].Get("clean"));
    EXPECT_EQ(501, startups[2].Int("lastTick"));
    const ProgramResult verify = RunMdstore({"verify", dir.base}, dir.env.Root());
    EXPECT_EQ(0, verify.exitCode) << verify.out;
    EXPECT_NE(std::string::npos, verify.out.find("foreign file " + planted)) << verify.out;
    EXPECT_NE(std::string::npos, verify.out.find("OK: 12 records in 3 segments")) << verify.out;
}

// The size bound from the environment: a number in any base, at least 128 KiB; anything else
// is ignored with one line and the default holds.
TEST(StoreSegments, SizeBoundFromTheEnvironment) {
    const struct {
        const char* value;
        std::size_t maxBytes;
        const char* says;
    } cases[] = {
        {"0x200000", 2u << 20, ""},
        {"1000", 128u << 10, ""},
        {"", DataStoreJournal::kDefaultMaxBytes, ""},
        {"12k", DataStoreJournal::kDefaultMaxBytes, "ignoring METADATA_STORE_MAX_BYTES=12k\n"},
        {"-5", DataStoreJournal::kDefaultMaxBytes, "ignoring METADATA_STORE_MAX_BYTES=-5\n"},
    };
    for (const auto& c : cases) {
        ::setenv("METADATA_STORE_MAX_BYTES", c.value, 1);
        testing::internal::CaptureStderr();
        const DataStoreJournal journal("unused");
        EXPECT_EQ(std::string(*c.says == '\0' ? "" : "DataStore: ") + c.says,
                  testing::internal::GetCapturedStderr());
        EXPECT_EQ(c.maxBytes, journal.MaxBytes()) << c.value;
        EXPECT_EQ(std::max<std::size_t>(c.maxBytes / 8, 64u << 10), journal.SegmentBytes());
    }
    ::unsetenv("METADATA_STORE_MAX_BYTES");
}

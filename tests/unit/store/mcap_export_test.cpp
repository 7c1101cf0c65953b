// mdstore export --format mcap read back by the MCAP ecosystem's own TypeScript reader, both
// ways it reads (tests/mcap/check.js), and compared with what mdstore says of the same store:
// cat for the records, the GPX export for the fixes. The mcap_reader fixture installs the
// reader into the build tree; without node and npm the test says SKIPPED. A cross build has
// no reader: its files must come out byte for byte as the native tool writes them.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "DataStore.h"
#include "RecordSchema.h"
#include "StoreFill.h"
#include "StoreRecords.h"
#include "StoreTestSupport.h"
#include "Subprocess.h"

namespace {

// Markup, quotes, a backslash, control bytes and bytes that are no UTF-8.
const char* const kHostile = "<b>\"x\" & 'y'</b> \\ \x01\x1f\x7f \xff\xc3 \xed\xa0\x80 end";

// The drive; `damaged`: its time anchor flipped, so that cat skips it and dates less.
void WriteDrive(const std::string& base, bool damaged) {
    DataStoreNormal store(base);
    ASSERT_TRUE(store.Open());
    ReportEveryText(store, [](const char*, const char*) { return std::string(kHostile); });
    for (unsigned i = 0; i < 40; ++i) {
        const unsigned tick = 1000 + 500 * i;
        store.TimerTick(tick);
        const unsigned short east = static_cast<unsigned short>(i);
        for (unsigned j = 0; j < 50; ++j) {  // ~1.3 MB of fixes: more than one chunk
            // Its own tick before the store's.
            store.ReportGps(Fix(59, 19, 137 * i + j, 1, 18, east, 0, i < 20 ? 1 : -1), tick - 3,
                            true);
        }
        store.ReportSpeed(1, static_cast<unsigned short>(i), true, tick, e_Tag_None);
        store.ReportStateData(i % 2 == 0 ? e_Tag_BrakesOn : e_Tag_BrakesOff, true, tick - 1);
    }
    store.ReportStateData(e_Tag_CrashDetected, true, 19000);
    store.ReportBookmark(19500);
    store.ReportShutdownData();
    store.Close();
    for (const ReadRecord& record : ReadResult(base).records) {
        if (damaged && record.op == mdj::kOpTimeAnchor) {
            std::string bytes = ReadFileText(base + ".000001.mdj");
            bytes[record.end - 2] ^= 0x10;
            WriteBytes(base + ".000001.mdj", bytes);
        }
    }
}

// The record's tick, as ranges see it: its own tick when real, else the store's.
long long Tick(const StoreRecord& r) {
    const long long own = r.Int("tick");
    const long long at = r.Int("at");
    return own != 0 && own != 0xFFFFFFFFll ? own : at == 0xFFFFFFFFll ? 0 : at;
}

const struct Case {
    const char* name;
    std::vector<std::string> args;
    bool damaged;  // the store whose time anchor is flipped
    const char* compression;
} kCases[] = {
    {"default compression", {}, false, "zstd"},
    {"uncompressed", {"--compression=none"}, false, ""},
    {"a tick range", {"--from=4000", "--to=12000", "--compression=zstd"}, false, "zstd"},
    {"two kinds", {"--kind=ReportGps", "--kind=ReportStateData", "--compression=none"}, false, ""},
    {"damaged", {"--compression=none"}, true, ""},
};

using Found = std::map<std::string, std::string>;  // what the reader found, by its key

// Each line cat prints is the record of the same number in the file, published at its tick and
// logged at its time, or a neighbour's. Each kind is a topic of its own schema whose count all
// three ways of reading agree on; the fixes are the GPX export's; the drive's story is logged:
// a crash as a warning, a bookmark as news.
void ExpectWhatCatAndGpxTell(const std::string& cat,
                             const std::vector<std::pair<double, double>>& points, Found& found) {
    std::map<std::string, long long> perKind;
    Found story;  // phrase: the log levels of its lines
    std::istringstream lines(cat);
    std::size_t i = 0;
    for (std::string line; std::getline(lines, line); ++i) {
        StoreRecord r{{}, line};
        ASSERT_TRUE(ParseJsonObjectLine(line, r.fields));
        ++perKind[r.Op()];
        const std::string tag = r.Get("tagName");
        story[r.Op() == "ReportBookmark" ? "bookmark" : tag] += tag == "crash detected" ? "3" : "2";
        const std::string n = std::to_string(i);
        ASSERT_EQ(line, found["records." + n]);
        const std::string times = found["times." + n];
        const std::string publish = times.substr(times.find(' ') + 1);
        EXPECT_EQ(std::to_string(Tick(r) * 1000000), publish) << line;
        if (r.Has("utc")) {
            EXPECT_EQ(r.Get("utc"), found["utc." + n]) << line;
        } else if (Tick(r) != 0) {
            EXPECT_EQ(publish + " " + publish, times) << line;
        } else {  // no time at all: a neighbour's, not 1970
            EXPECT_NE("0", times.substr(0, times.find(' '))) << line;
        }
    }
    EXPECT_EQ("", found["records." + std::to_string(i)]);
    for (const auto& kind : perKind) {
        const std::string topic = "topics./metadata/" + kind.first + ".";
        for (const char* way : {"indexed", "stream", "statistics"}) {
            EXPECT_EQ(std::to_string(kind.second), found[topic + way]) << topic << way;
        }
        EXPECT_EQ("mdstore." + kind.first, found[topic + "schema"]);
        EXPECT_EQ("jsonschema", found[topic + "schemaEncoding"]);
        EXPECT_EQ("json", found[topic + "messageEncoding"]);
    }
    const std::string fixes = std::to_string(points.size());
    EXPECT_EQ(fixes, found["topics./gps/fix.indexed"]);
    EXPECT_EQ(fixes, found["topics./gps/fix.stream"]);
    EXPECT_EQ("", found["fixes." + fixes + ".0"]);
    for (std::size_t k : {std::size_t{0}, points.size() - 1}) {
        const std::string fix = "fixes." + std::to_string(k);
        EXPECT_NEAR(points[k].first, std::strtod(found[fix + ".0"].c_str(), nullptr), 1e-7);
        EXPECT_NEAR(points[k].second, std::strtod(found[fix + ".1"].c_str(), nullptr), 1e-7);
    }
    Found levels;
    for (std::size_t k = 0; found.count("logs." + std::to_string(k) + ".0") != 0; ++k) {
        const std::string entry = "logs." + std::to_string(k);
        levels[found[entry + ".1"]] += found[entry + ".0"];
    }
    for (const char* phrase : {"crash detected", "bookmark", "brakes on"}) {
        EXPECT_EQ(story[phrase], levels[phrase]) << phrase;
    }
}

}  // namespace

TEST(McapExport, AnIndependentReaderFindsWhatCatAndGpxFindInEveryExport) {
    const std::string reader = MCAP_READER_DIR "/node_modules";
    const std::string native = HostToolPath("mdstore");
    const bool cross = native != ProgramPath("mdstore");
    if (cross && native.empty()) {
        GTEST_SKIP() << "SKIPPED: no native mdstore to compare the cross build's files with";
    } else if (cross) {
        std::puts("MCAP reader: SKIPPED on a cross build (files compared with the native tool's)");
    } else if (ReadFileText(reader + "/@mcap/core/package.json").empty()) {
        GTEST_SKIP() << "SKIPPED: the MCAP reader is not installed (needs node and npm)";
    }
    StoreDir dir;
    const std::string damaged = dir.env.Path("damaged");
    ASSERT_NO_FATAL_FAILURE(WriteDrive(dir.base, false));
    ASSERT_NO_FATAL_FAILURE(WriteDrive(damaged, true));
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string store = c.damaged ? damaged : dir.base;
        const std::string file = dir.env.Path(std::string(c.name) + ".mcap");
        std::vector<std::string> argv = {
            ProgramPath("mdstore"), "export", "--format=mcap", "-o", file, store};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        if (cross) {  // big-endian: the same bytes as the native tool's
            if (std::string(c.compression).empty()) {
                ASSERT_EQ(0, RunProgram(argv, {}, dir.env.Root()).exitCode);
                const std::string mine = ReadFileText(file);
                argv[0] = native;
                ASSERT_EQ(0, RunProgram(argv, {}, dir.env.Root()).exitCode);
                EXPECT_TRUE(mine == ReadFileText(file)) << "differs from the native tool's";
            }
            continue;
        }
        const ProgramResult exported = RunProgram(argv, {}, dir.env.Root());
        ASSERT_EQ(0, exported.exitCode) << exported.err;
        std::vector<std::string> filter;
        std::copy_if(c.args.begin(), c.args.end(), std::back_inserter(filter),
                     [](const std::string& a) { return a.find("--compression") != 0; });
        argv = {ProgramPath("mdstore"), "cat", "--json", store};
        argv.insert(argv.end(), filter.begin(), filter.end());
        const ProgramResult cat = RunProgram(argv, {}, dir.env.Root());
        EXPECT_EQ(cat.err, exported.err);  // the same damage, said the same way
        EXPECT_EQ(c.damaged, !exported.err.empty());
        argv = {ProgramPath("mdstore"), "export", "--format=gpx", store};
        argv.insert(argv.end(), filter.begin(), filter.end());
        const auto points = GpxPoints(RunProgram(argv, {}, dir.env.Root()).out, "trkpt");
        const ProgramResult read =
            RunProgram({"node", MCAP_CHECK_SCRIPT, file}, {"NODE_PATH=" + reader}, dir.env.Root());
        ASSERT_EQ(0, read.exitCode) << read.out << read.err;
        Found found;
        ASSERT_TRUE(ParseJsonObjectLine(read.out.substr(0, read.out.find('\n')), found));
        ASSERT_NO_FATAL_FAILURE(ExpectWhatCatAndGpxTell(cat.out, points, found));
        EXPECT_EQ("true", found["ascending"]);
        EXPECT_EQ(c.compression, found["compression"]);
        // Without its anchor the damaged store is dated from the next snapshot on.
        EXPECT_EQ(c.damaged ? "utc, the tick before the first time anchor" : "utc",
                  found["metadata.timeBase"]);
        EXPECT_EQ("1", found["metadataIndexes"]);
        if (c.args.size() < 2) {  // the whole store
            EXPECT_LT(1, std::atoi(found["chunks"].c_str()));
        }
    }
}

// Copies of a tick range: a new file that opens with the state as of the range's start, made
// only inside the export directory.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>

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

// Every file and link under `root` but inside `skip`, with its size and time of change.
std::string* gTree = nullptr;
std::string gSkip;
int AddToTree(const char* path, const struct stat* info, int, struct FTW*) {
    const std::string name = path;
    if (name.compare(0, gSkip.size(), gSkip) != 0) {
        *gTree += name + " " + std::to_string(info->st_size) + " " +
                  std::to_string(info->st_ctim.tv_nsec) + "\n";
    }
    return 0;
}
std::string Tree(const std::string& root, const std::string& skip) {
    std::string tree;
    gTree = &tree;
    gSkip = skip;
    nftw(root.c_str(), AddToTree, 16, FTW_PHYS);
    return tree;
}

}  // namespace

TEST(StoreCopy, ARangeCopyHoldsTheStateAtItsStartAndExactlyTheRecordsInside) {
    StoreDir dir;
    WriteTimeline(dir.base);
    Watchdog watchdog(e_Process_MetadataMgr, e_Thread_Main);
    ASSERT_TRUE(watchdog.Subscribe(10));
    const unsigned int petsBefore = watchdog.PetCount();
    const std::string copy = dir.env.Media() + "/export/clip.mdj";
    MetadataReader reader;
    ASSERT_TRUE(reader.ReadToNewFile(dir.base, "clip.mdj", 3000, 6000, &watchdog));
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

    // The same through mdstore copy; the records are alike (each copy is a store of its own,
    // with its own identity) and it checks out.
    const std::string viaTool = dir.env.Path("tool.mdj");
    const ProgramResult result =
        RunMdstore({"copy", dir.base, viaTool, "--from", "3000", "--to", "6000"}, dir.env.Root());
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(ReadFileText(copy).substr(mdj::kSegmentHeaderSize),
              ReadFileText(viaTool).substr(mdj::kSegmentHeaderSize));
    EXPECT_EQ(0, RunMdstore({"verify", viaTool}, dir.env.Root()).exitCode);
    // Only the bookmarks of the range, after the whole state.
    const std::string marks = dir.env.Path("marks.mdj");
    ASSERT_EQ(0, RunMdstore(
                     {"copy", "--kind=ReportBookmark", "--from=3000", "--to=3200", dir.base, marks},
                     dir.env.Root())
                     .exitCode);
    std::string ops;
    for (const StoreRecord& record : ReadStoreRecords(marks, dir.env.Root())) {
        ops += record.Op() + " ";
    }
    EXPECT_EQ("WriteFullState ReportBookmark ReportBookmark ReportBookmark ", ops);

    // An empty range still gives the state as of its start, and nothing else.
    ASSERT_TRUE(reader.ReadToNewFile(dir.base, "empty.mdj", 20000, 30000, nullptr));
    const ReadResult emptyRead(dir.env.Media() + "/export/empty.mdj");
    ASSERT_EQ(1u, emptyRead.records.size());
    EXPECT_EQ(3, emptyRead.records[0].op);
}

// Another process names the file: only a new file inside the export directory is ever made,
// and a refusal is answered false with one line saying why.
TEST(StoreCopy, CopiesAreMadeOnlyAsNewFilesInsideTheExportDirectory) {
    StoreDir dir;
    WriteTimeline(dir.base);
    const std::string exportDir = dir.env.Media() + "/export";
    MetadataReader reader;
    ASSERT_TRUE(reader.ReadToNewFile(dir.base, "first.mdj", 0, 1, nullptr));
    struct stat info;
    ASSERT_EQ(0, ::stat(exportDir.c_str(), &info));
    EXPECT_EQ(0750u, info.st_mode & 07777);
    ASSERT_EQ(0, ::mkdir((exportDir + "/sub").c_str(), 0750));
    const std::string existing = exportDir + "/existing.mdj";
    WriteBytes(existing, "keep me");
    ASSERT_EQ(0, ::symlink(dir.env.Root().c_str(), (exportDir + "/link").c_str()));
    ASSERT_EQ(0,
              ::symlink(dir.env.Path("would-be.mdj").c_str(), (exportDir + "/dangling").c_str()));
    // The working directory of a relative name is the export directory, never the process's.
    char cwd[4096];
    ASSERT_NE(nullptr, ::getcwd(cwd, sizeof cwd));

    const std::string outside = Tree(dir.env.Root(), exportDir);
    const struct {
        std::string name;
        const char* exportDir;  // METADATA_EXPORT_DIR, or null
        bool made;
        const char* why;
    } cases[] = {
        {dir.env.Path("outside.mdj"), nullptr, false, "outside the export directory"},
        {"../escape.mdj", nullptr, false, "'..' in the name"},
        {"sub/../../escape.mdj", nullptr, false, "'..' in the name"},
        {"link/through.mdj", nullptr, false, "a symbolic link on the path"},
        {"metadata/into-store.mdj", "media", false, "the store's own directory"},
        {"metadata.999999.mdj", nullptr, false, "the name of a metadata segment"},
        {"existing.mdj", nullptr, false, "exists, not replaced"},
        {"dangling", nullptr, false, "a symbolic link is there"},
        {"", nullptr, false, "no file name"},
        {"cwd-relative.mdj", nullptr, true, nullptr},
        {exportDir + "/sub/./absolute.mdj", nullptr, true, nullptr},
    };
    for (const auto& c : cases) {
        if (c.exportDir != nullptr) {
            ::setenv("METADATA_EXPORT_DIR", dir.env.Path(c.exportDir).c_str(), 1);
        }
        ::fflush(stderr);
        const std::string log = exportDir + "/log.txt";
        const int saved = ::dup(2);
        const int file = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(file, 2);
        const bool made = reader.ReadToNewFile(dir.base, c.name, 0, 0xFFFFFFFFu, nullptr);
        ::dup2(saved, 2);
        ::close(saved);
        ::close(file);
        ::unsetenv("METADATA_EXPORT_DIR");
        EXPECT_EQ(c.made, made) << c.name;
        const std::string text = ReadFileText(log);
        if (c.why != nullptr) {
            EXPECT_NE(std::string::npos, text.find(std::string("refused: ") + c.why))
                << c.name << ": " << text;
            EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
        }
    }
    EXPECT_EQ(outside, Tree(dir.env.Root(), exportDir));
    EXPECT_EQ("keep me", ReadFileText(existing));
    EXPECT_NE(0, ::access((std::string(cwd) + "/cwd-relative.mdj").c_str(), F_OK));
    for (const char* made : {"/cwd-relative.mdj", "/sub/absolute.mdj"}) {
        const ReadResult copy(exportDir + made);
        EXPECT_TRUE(copy.problems.empty() && copy.records.size() > 100) << made;
    }
    // A reversed range or a store with nothing in it leaves no file behind.
    EXPECT_FALSE(reader.ReadToNewFile(dir.base, "fresh.mdj", 5000, 4000, nullptr));
    EXPECT_FALSE(reader.ReadToNewFile(dir.env.Path("absent/metadata"), "fresh.mdj", 0, 1, nullptr));
    EXPECT_NE(0, ::access((exportDir + "/fresh.mdj").c_str(), F_OK));
    EXPECT_EQ(2, RunMdstore({"copy", dir.base, existing}, dir.env.Root()).exitCode);
    EXPECT_EQ(1, RunMdstore({"copy", dir.base}, dir.env.Root()).exitCode);
    const ProgramResult usage =
        RunMdstore({"copy", dir.base, dir.env.Path("fresh.mdj"), "--from=x"}, dir.env.Root());
    EXPECT_EQ(1, usage.exitCode);
    EXPECT_EQ(
        "mdstore: copy: --from=x needs a tick (0 to 4294967295) (mdstore copy --help for "
        "usage)\n",
        usage.err);
}

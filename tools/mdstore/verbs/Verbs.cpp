#include "Verbs.h"

#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>

#include "JournalReader.h"
#include "RangeCopy.h"
#include "RecordSchema.h"
#include "SegmentFiles.h"
#include "reading/RecordStream.h"
#include "reading/TextEscape.h"
#include "reading/TimeAnchors.h"
#include "verbs/Summary.h"

// The copy itself, once DEST is a file name.
int CopyVerbPaths(Options& options, const char* shownAs);

namespace {

struct SegmentInfo {
    std::string path;
    std::uint32_t number = 0;
    std::size_t bytes = 0;
    unsigned long long records = 0;
    std::uint32_t firstAt = 0xFFFFFFFFu;
    std::uint32_t lastAt = 0xFFFFFFFFu;
};

class InfoSink : public mdj::JournalSink {
public:
    void BeginSegment(const mdj::SegmentFile& file, std::size_t bytes) override {
        SegmentInfo info;
        info.path = file.path;
        info.number = file.number;
        info.bytes = bytes;
        segments.push_back(info);
    }
    bool Record(const mdj::SegmentFile&, const mdj::RecordView& record) override {
        anchors.Note(record);
        long long utcMs = 0;
        if (anchors.RecordUtc(record, utcMs)) {
            firstUtc = anyUtc && firstUtc < utcMs ? firstUtc : utcMs;
            lastUtc = anyUtc && lastUtc > utcMs ? lastUtc : utcMs;
            anyUtc = true;
        }
        SegmentInfo& segment = segments.back();
        ++segment.records;
        if (segment.records == 1) {
            segment.firstAt = record.stamp;
        }
        segment.lastAt = record.stamp;
        ++perOp[mdj::OpName(record.op)];
        ++records;
        const std::uint32_t time =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (time != 0xFFFFFFFFu) {
            minTick = time < minTick ? time : minTick;
            maxTick = time > maxTick ? time : maxTick;
            anyTick = true;
        }
        if (record.op == mdj::kOpReportShutdownDataAtStartup && record.size >= 2) {
            if (record.body[0] == 0) {
                ++firstRuns;
            } else if (record.body[1] != 0) {
                ++cleanBefore;
            } else {
                ++uncleanBefore;
            }
        }
        if (record.op == mdj::kOpReportShutdownData) {
            ++shutdowns;
        }
        return true;
    }
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        char line[512];
        std::snprintf(line, sizeof line, "  %s: %s at offset %zu (%zu bytes)",
                      textout::Printable(file.path).c_str(), mdj::ProblemName(problem), offset,
                      length);
        troubles.push_back(line);
        troubleBytes += length;
    }
    void Foreign(const mdj::ForeignFile& file) override {
        foreign.push_back("  foreign file " + textout::Printable(file.file.path) + ": " + file.why);
    }

    std::vector<SegmentInfo> segments;
    timeanchor::TimeAnchors anchors;
    bool anyUtc = false;
    long long firstUtc = 0;
    long long lastUtc = 0;
    std::map<std::string, unsigned long long> perOp;
    unsigned long long records = 0;
    std::uint32_t minTick = 0xFFFFFFFFu;
    std::uint32_t maxTick = 0;
    bool anyTick = false;
    unsigned long long cleanBefore = 0;
    unsigned long long uncleanBefore = 0;
    unsigned long long firstRuns = 0;
    unsigned long long shutdowns = 0;
    std::vector<std::string> troubles;
    unsigned long long troubleBytes = 0;
    std::vector<std::string> foreign;
};

class VerifySink : public mdj::JournalSink {
public:
    void BeginSegment(const mdj::SegmentFile&, std::size_t size) override {
        ++segments;
        bytes += size;
    }
    bool Record(const mdj::SegmentFile&, const mdj::RecordView&) override {
        ++records;
        return true;
    }
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        ++problems;
        std::printf("DAMAGE %s: %s at offset %zu (%zu bytes)\n",
                    textout::Printable(file.path).c_str(), mdj::ProblemName(problem), offset,
                    length);
    }
    // Not the store's, so not its damage: named, and left out of the verdict.
    void Foreign(const mdj::ForeignFile& file) override {
        std::printf("foreign file %s: %s\n", textout::Printable(file.file.path).c_str(),
                    file.why.c_str());
    }
    unsigned long long segments = 0;
    unsigned long long bytes = 0;
    unsigned long long records = 0;
    unsigned long long problems = 0;
};

class StderrProgress : public mdj::CopyProgress {
public:
    StderrProgress() : start_(std::time(nullptr)), last_(start_) {}
    void Working(unsigned long long read, unsigned long long copied) override {
        const std::time_t now = std::time(nullptr);
        if (now - last_ >= 1) {
            std::fprintf(stderr, "mdstore: copy: %llu records read, %llu copied\n", read, copied);
            last_ = now;
        }
    }

private:
    std::time_t start_;
    std::time_t last_;
};

// The ticks of the first and last records whose times lie in [--since, --until]: a copy
// takes ticks.
class TickRange : public DatedSink {
public:
    explicit TickRange(const Options& options) : DatedSink(options) {}
    bool any = false;
    std::uint32_t first = 0xFFFFFFFFu;
    std::uint32_t last = 0;

protected:
    void Take(const mdj::RecordView& record, const long long*) override {
        const std::uint32_t time =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        first = time < first ? time : first;
        last = time > last ? time : last;
        any = true;
    }
    void Trouble(const mdj::SegmentFile&, mdj::Problem, std::size_t, std::size_t) override {}
};

bool TicksOfTimes(Options& options) {
    TickRange range(options);
    if (!mdj::ReadJournal(options.paths[0], range) || !range.any) {
        return false;
    }
    options.from = range.first;
    options.to = range.last;
    return true;
}

// The file at `path` onto standard output a block at a time: a copy is as long as its range.
bool SendFile(const std::string& path) {
    std::FILE* in = std::fopen(path.c_str(), "rb");
    if (in == nullptr) {
        return false;
    }
    char block[65536];
    bool written = true;
    for (std::size_t got = std::fread(block, 1, sizeof block, in); got > 0 && written;
         got = std::fread(block, 1, sizeof block, in)) {
        written = std::fwrite(block, 1, got, stdout) == got;
    }
    const bool read = std::ferror(in) == 0;
    std::fclose(in);
    return read && written;
}

// DEST "-": the copy goes through a private temporary file to standard output; what would be
// said about it goes to standard error.
int CopyToStdout(Options& options) {
    const char* tmp = std::getenv("TMPDIR");
    std::string dir =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/mdstore.XXXXXX";
    if (mkdtemp(&dir[0]) == nullptr) {
        std::fprintf(stderr, "mdstore: cannot make a temporary directory for the copy\n");
        return 2;
    }
    const std::string file = dir + "/copy.mdj";
    options.paths[1] = file;
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const int status = CopyVerbPaths(options, "standard output");
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    const bool sent = status == 0 && SendFile(file);
    unlink(file.c_str());
    rmdir(dir.c_str());
    if (status != 0) {
        return status;
    }
    return sent && std::fflush(stdout) == 0 ? 0 : 2;
}

}  // namespace

int InfoVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, 0, 1, kInfoUsage, options);
    if (early >= 0) {
        return early;
    }
    InfoSink info;
    if (!mdj::ReadJournal(options.paths[0], info)) {
        return Unreadable(options.paths[0]);
    }
    unsigned long long bytes = 0;
    for (const SegmentInfo& segment : info.segments) {
        bytes += segment.bytes;
    }
    std::printf("store: %s\n", textout::Printable(options.paths[0]).c_str());
    std::printf("segments: %zu, %llu bytes\n", info.segments.size(), bytes);
    for (const SegmentInfo& segment : info.segments) {
        std::printf("  %s: %zu bytes, %llu records, at %u..%u\n",
                    textout::Printable(segment.path).c_str(), segment.bytes, segment.records,
                    segment.firstAt, segment.lastAt);
    }
    if (info.anyTick) {
        std::printf("ticks: %u..%u\n", info.minTick, info.maxTick);
    } else {
        std::printf("ticks: none\n");
    }
    if (info.anyUtc) {
        std::printf("time: %s..%s\n", timeanchor::FormatUtc(info.firstUtc).c_str(),
                    timeanchor::FormatUtc(info.lastUtc).c_str());
    } else {
        std::printf("time: unknown (no time anchor)\n");
    }
    std::printf("records: %llu\n", info.records);
    for (const auto& entry : info.perOp) {
        std::printf("  %s: %llu\n", entry.first.c_str(), entry.second);
    }
    std::printf("shutdowns: %llu clean (ReportShutdownData)\n", info.shutdowns);
    std::printf("start-ups: %llu after a clean shutdown, %llu after an unclean one, %llu first\n",
                info.cleanBefore, info.uncleanBefore, info.firstRuns);
    std::printf("damage: %zu places, %llu bytes\n", info.troubles.size(), info.troubleBytes);
    for (const std::string& line : info.troubles) {
        std::printf("%s\n", line.c_str());
    }
    // Files that look like segments but are not the store's: not damage.
    std::printf("foreign files: %zu\n", info.foreign.size());
    for (const std::string& line : info.foreign) {
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

int VerifyVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, 0, 1, kVerifyUsage, options);
    if (early >= 0) {
        return early;
    }
    VerifySink sink;
    if (!mdj::ReadJournal(options.paths[0], sink)) {
        return Unreadable(options.paths[0]);
    }
    if (sink.problems != 0) {
        std::printf("DAMAGED: %llu problems in %llu segments (%llu good records)\n", sink.problems,
                    sink.segments, sink.records);
        return 2;
    }
    std::printf("OK: %llu records in %llu segments, %llu bytes\n", sink.records, sink.segments,
                sink.bytes);
    return 0;
}

int CopyVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptRange | kOptKind, 2, kCopyUsage, options);
    if (early >= 0) {
        return early;
    }
    return options.paths[1] == "-" ? CopyToStdout(options) : CopyVerbPaths(options, nullptr);
}

int CopyVerbPaths(Options& options, const char* shownAs) {
    const std::string& source = options.paths[0];
    const std::string& destination = options.paths[1];
    const std::string shownSource = textout::Printable(source);
    const std::string shownDestination = textout::Printable(destination);
    struct stat info;
    if (lstat(destination.c_str(), &info) == 0) {
        std::fprintf(stderr, "mdstore: %s exists%s; not overwritten\n", shownDestination.c_str(),
                     S_ISLNK(info.st_mode) ? " as a symbolic link" : "");
        return 2;
    }
    if (!mdj::IsDirectory(mdj::DirectoryOf(destination))) {
        std::fprintf(stderr, "mdstore: directory %s is missing\n",
                     textout::Printable(mdj::DirectoryOf(destination)).c_str());
        return 2;
    }
    if (options.from > options.to) {
        std::fprintf(stderr, "mdstore: --from %u is after --to %u\n", options.from, options.to);
        return 2;
    }
    if ((options.haveSince || options.haveUntil) && !TicksOfTimes(options)) {
        std::fprintf(stderr, "mdstore: no dated records of %s lie between --since and --until\n",
                     shownSource.c_str());
        return 2;
    }
    StderrProgress progress;
    mdj::CopyResult result;
    if (!mdj::CopyRange(source, destination, options.from, options.to, &progress, &result,
                        options.anyKind ? options.kinds : nullptr)) {
        std::fprintf(stderr, "mdstore: copy from %s to %s failed\n", shownSource.c_str(),
                     shownDestination.c_str());
        return 2;
    }
    if (result.problems != 0) {
        std::fprintf(stderr, "mdstore: %llu damaged places in %s were skipped\n", result.problems,
                     shownSource.c_str());
    }
    std::printf("copied %llu of %llu records into %s\n", result.recordsCopied, result.recordsRead,
                shownAs != nullptr ? shownAs : shownDestination.c_str());
    return 0;
}

int SummaryVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(argc, argv, kOptJson, 1, kSummaryUsage, options);
    if (early >= 0) {
        return early;
    }
    summary::StoreSummary result;
    if (!summary::Summarize(options.paths[0], result)) {
        return Unreadable(options.paths[0]);
    }
    std::string text;
    if (options.json) {
        summary::PrintJson(result, text);
        text += '\n';
    } else {
        summary::PrintText(result, text);
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 2;
}

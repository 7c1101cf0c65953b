#include "Verbs.h"

#include <sys/stat.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>

#include "JournalReader.h"
#include "RangeCopy.h"
#include "RecordPrinter.h"
#include "RecordSchema.h"
#include "SegmentFiles.h"
#include "Summary.h"

namespace {

struct Options {
    bool help = false;
    bool json = false;
    std::uint32_t from = 0;
    std::uint32_t to = 0xFFFFFFFFu;
    std::vector<std::string> paths;
};

bool ParseTick(const std::string& text, std::uint32_t& value) {
    if (text.empty() || text[0] == '-' || text[0] == '+') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long parsed = std::strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || parsed > 0xFFFFFFFFull) {
        return false;
    }
    value = static_cast<std::uint32_t>(parsed);
    return true;
}

// False (after a message) on a usage error.
bool Parse(const std::vector<std::string>& args, bool allowJson, bool allowRange,
           Options& options) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            options.help = true;
        } else if (allowJson && arg == "--json") {
            options.json = true;
        } else if (allowRange && (arg == "--from" || arg == "--to")) {
            std::uint32_t& target = arg == "--from" ? options.from : options.to;
            if (i + 1 >= args.size() || !ParseTick(args[i + 1], target)) {
                std::fprintf(stderr, "mdstore: %s needs a tick (0 to 4294967295)\n", arg.c_str());
                return false;
            }
            ++i;
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::fprintf(stderr, "mdstore: unknown option %s\n", arg.c_str());
            return false;
        } else {
            options.paths.push_back(arg);
        }
    }
    return true;
}

// Parses and handles --help and the number of paths; -1 means go on.
int Prepare(const std::vector<std::string>& args, bool allowJson, bool allowRange,
            std::size_t pathCount, const char* usage, Options& options) {
    if (!Parse(args, allowJson, allowRange, options)) {
        std::fputs(usage, stderr);
        return 1;
    }
    if (options.help) {
        std::fputs(usage, stdout);
        return 0;
    }
    if (options.paths.size() != pathCount) {
        std::fputs(usage, stderr);
        return 1;
    }
    return -1;
}

void ReportTrouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                   std::size_t length) {
    std::fprintf(stderr, "mdstore: %s: %s at offset %zu (%zu bytes)\n", file.path.c_str(),
                 mdj::ProblemName(problem), offset, length);
}

int Unreadable(const std::string& path) {
    std::fprintf(stderr, "mdstore: no metadata files at %s\n", path.c_str());
    return 2;
}

class CatSink : public mdj::JournalSink {
public:
    explicit CatSink(const Options& options) : options_(options) { line_.reserve(4096); }
    bool Record(const mdj::SegmentFile&, const mdj::RecordView& record) override {
        const std::uint32_t time =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (time < options_.from || time > options_.to) {
            return true;
        }
        line_.clear();
        if (options_.json) {
            RecordJson(record, line_);
        } else {
            RecordText(record, line_);
        }
        line_ += '\n';
        std::fwrite(line_.data(), 1, line_.size(), stdout);
        return true;
    }
    void Trouble(const mdj::SegmentFile& file, mdj::Problem problem, std::size_t offset,
                 std::size_t length) override {
        std::fflush(stdout);
        ReportTrouble(file, problem, offset, length);
    }

private:
    const Options& options_;
    std::string line_;
};

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
        std::snprintf(line, sizeof line, "  %s: %s at offset %zu (%zu bytes)", file.path.c_str(),
                      mdj::ProblemName(problem), offset, length);
        troubles.push_back(line);
        troubleBytes += length;
    }
    void Foreign(const mdj::ForeignFile& file) override {
        foreign.push_back("  foreign file " + file.file.path + ": " + file.why);
    }

    std::vector<SegmentInfo> segments;
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
        std::printf("DAMAGE %s: %s at offset %zu (%zu bytes)\n", file.path.c_str(),
                    mdj::ProblemName(problem), offset, length);
    }
    // Not the store's, so not its damage: named, and left out of the verdict.
    void Foreign(const mdj::ForeignFile& file) override {
        std::printf("foreign file %s: %s\n", file.file.path.c_str(), file.why.c_str());
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

}  // namespace

int CatVerb(const std::vector<std::string>& args) {
    Options options;
    const int early = Prepare(args, true, true, 1, kCatUsage, options);
    if (early >= 0) {
        return early;
    }
    CatSink sink(options);
    if (!mdj::ReadJournal(options.paths[0], sink)) {
        return Unreadable(options.paths[0]);
    }
    return std::fflush(stdout) == 0 ? 0 : 2;
}

int InfoVerb(const std::vector<std::string>& args) {
    Options options;
    const int early = Prepare(args, false, false, 1, kInfoUsage, options);
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
    std::printf("store: %s\n", options.paths[0].c_str());
    std::printf("segments: %zu, %llu bytes\n", info.segments.size(), bytes);
    for (const SegmentInfo& segment : info.segments) {
        std::printf("  %s: %zu bytes, %llu records, at %u..%u\n", segment.path.c_str(),
                    segment.bytes, segment.records, segment.firstAt, segment.lastAt);
    }
    if (info.anyTick) {
        std::printf("ticks: %u..%u\n", info.minTick, info.maxTick);
    } else {
        std::printf("ticks: none\n");
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

int VerifyVerb(const std::vector<std::string>& args) {
    Options options;
    const int early = Prepare(args, false, false, 1, kVerifyUsage, options);
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

int CopyVerb(const std::vector<std::string>& args) {
    Options options;
    const int early = Prepare(args, false, true, 2, kCopyUsage, options);
    if (early >= 0) {
        return early;
    }
    const std::string& source = options.paths[0];
    const std::string& destination = options.paths[1];
    struct stat info;
    if (lstat(destination.c_str(), &info) == 0) {
        std::fprintf(stderr, "mdstore: %s exists%s; not overwritten\n", destination.c_str(),
                     S_ISLNK(info.st_mode) ? " as a symbolic link" : "");
        return 2;
    }
    if (!mdj::IsDirectory(mdj::DirectoryOf(destination))) {
        std::fprintf(stderr, "mdstore: directory %s is missing\n",
                     mdj::DirectoryOf(destination).c_str());
        return 2;
    }
    if (options.from > options.to) {
        std::fprintf(stderr, "mdstore: --from %u is after --to %u\n", options.from, options.to);
        return 2;
    }
    StderrProgress progress;
    mdj::CopyResult result;
    if (!mdj::CopyRange(source, destination, options.from, options.to, &progress, &result)) {
        std::fprintf(stderr, "mdstore: copy from %s to %s failed\n", source.c_str(),
                     destination.c_str());
        return 2;
    }
    if (result.problems != 0) {
        std::fprintf(stderr, "mdstore: %llu damaged places in %s were skipped\n", result.problems,
                     source.c_str());
    }
    std::printf("copied %llu of %llu records into %s\n", result.recordsCopied, result.recordsRead,
                destination.c_str());
    return 0;
}

int SummaryVerb(const std::vector<std::string>& args) {
    Options options;
    const int early = Prepare(args, true, false, 1, kSummaryUsage, options);
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

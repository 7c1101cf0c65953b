// mdstore copy: a tick or time range of a store, and chosen kinds, into a new store of its own.
#include <sys/stat.h>
#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "JournalReader.h"
#include "RangeCopy.h"
#include "RecordSchema.h"
#include "SegmentFiles.h"
#include "Verbs.h"
#include "reading/Options.h"
#include "reading/RecordStream.h"
#include "reading/TextEscape.h"

// The copy itself, once DEST is a file name.
int CopyVerbPaths(Options& options, const char* shownAs);

namespace {

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

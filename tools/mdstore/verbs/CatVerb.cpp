// mdstore cat: one line per record, the last N, and --follow on a live store.
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <cstdio>
#include <deque>

#include "SegmentFiles.h"
#include "SegmentWindow.h"
#include "Verbs.h"
#include "reading/RecordPrinter.h"
#include "reading/RecordStream.h"

namespace {

volatile sig_atomic_t gStop = 0;

void OnStopSignal(int) {
    gStop = 1;
}

double MonotonicSeconds() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9;
}

class CatSink : public DatedSink {
public:
    explicit CatSink(const Options& options) : DatedSink(options) {}

    void BeginSegment(const mdj::SegmentFile& file, std::size_t) override {
        file_ = file;
        consumed_ = 0;
    }
    bool Record(const mdj::SegmentFile& file, const mdj::RecordView& record) override {
        consumed_ = record.offset + record.frameSize();
        return DatedSink::Record(file, record);
    }

    // Prints what -n held back; from here on every record is printed as it comes.
    void Release() {
        holding_ = false;
        for (const Held& held : held_) {
            mdj::RecordView record;
            record.op = held.op;
            record.stamp = held.stamp;
            record.body = held.body.data();
            record.size = static_cast<std::uint32_t>(held.body.size());
            Take(record, held.dated ? &held.utcMs : nullptr);
        }
        held_.clear();
        std::fflush(stdout);
    }

    // Reads what was added to the store since: the rest of the current segment, then every
    // newer one. Half-written records wait for the next look.
    void CatchUp(const std::string& path) {
        mdj::JournalFiles files;
        if (!mdj::ResolveJournal(path, files)) {
            return;
        }
        for (const mdj::SegmentFile& file : files.segments) {
            if (file.number < file_.number) {
                continue;
            }
            if (file.path != file_.path) {
                file_ = file;
                consumed_ = 0;
                scanned_ = 0;
            }
            struct stat info;
            if (stat(file.path.c_str(), &info) != 0 ||
                static_cast<std::size_t>(info.st_size) == scanned_) {
                continue;
            }
            mdj::SegmentWindow window(window_);
            if (!window.Open(file.path)) {
                continue;
            }
            scanned_ = window.Size();
            mdj::SegmentScanner scanner(window);
            for (mdj::SegmentScanner::Event event = scanner.Next();
                 event.kind != mdj::SegmentScanner::kEnd; event = scanner.Next()) {
                const mdj::RecordView& record = event.record;
                if (event.kind == mdj::SegmentScanner::kRecord && record.offset >= consumed_ &&
                    mdj::WalkRecord(record.op, record.body, record.size, nullptr)) {
                    Record(file, record);
                }
            }
        }
    }

protected:
    void Take(const mdj::RecordView& record, const long long* utcMs) override {
        if (holding_ && options_.last >= 0) {
            // Only the last N are printed: keep their bytes, format them at the end.
            held_.push_back(Held{record.op,
                                 record.stamp,
                                 {record.body, record.body + record.size},
                                 utcMs != nullptr,
                                 utcMs != nullptr ? *utcMs : 0});
            if (held_.size() > static_cast<std::size_t>(options_.last)) {
                held_.pop_front();
            }
            return;
        }
        std::string line;
        if (options_.json) {
            RecordJson(record, utcMs, line);
        } else {
            RecordText(record, utcMs, line);
        }
        line += '\n';
        std::fwrite(line.data(), 1, line.size(), stdout);
        if (options_.follow) {
            std::fflush(stdout);
        }
    }

private:
    mdj::SegmentFile file_;
    std::size_t consumed_ = 0;  // end of the last record taken from file_
    std::size_t scanned_ = 0;   // bytes of file_ when it was last read
    std::vector<unsigned char> window_;
    struct Held {
        std::uint8_t op;
        std::uint32_t stamp;
        std::vector<unsigned char> body;
        bool dated;
        long long utcMs;
    };
    bool holding_ = true;
    std::deque<Held> held_;
};

int Follow(CatSink& sink, const Options& options) {
    struct sigaction action = {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    const double end = MonotonicSeconds() + options.followSeconds;
    const struct timespec pause = {0, 100 * 1000 * 1000};
    while (gStop == 0 && (options.followSeconds == 0 || MonotonicSeconds() < end)) {
        nanosleep(&pause, nullptr);
        sink.CatchUp(options.paths[0]);
    }
    return std::fflush(stdout) == 0 ? 0 : 2;
}

}  // namespace

int CatVerb(int argc, char** argv) {
    Options options;
    const int early = ParseOptions(
        argc, argv, kOptJson | kOptRange | kOptKind | kOptLast | kOptFollow, 1, kCatUsage, options);
    if (early >= 0) {
        return early;
    }
    CatSink sink(options);
    if (!mdj::ReadJournal(options.paths[0], sink)) {
        return Unreadable(options.paths[0]);
    }
    sink.Release();
    if (options.follow) {
        return Follow(sink, options);
    }
    return std::fflush(stdout) == 0 ? 0 : 2;
}

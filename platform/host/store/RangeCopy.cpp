#include "RangeCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>
#include <memory>
#include <vector>

#include "JournalReader.h"
#include "RecordSchema.h"
#include "StoreState.h"

namespace mdj {

namespace {

const unsigned kRecordsPerProgress = 256;
const long long kProgressIntervalMs = 100;
const std::size_t kWriteChunk = 64u << 10;

long long NowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

class CopySink : public JournalSink {
public:
    CopySink(int fd, std::uint32_t first, std::uint32_t second, CopyProgress* progress,
             CopyResult& result, const bool* kinds)
        : fd_(fd),
          kinds_(kinds),
          first_(first),
          second_(second),
          progress_(progress),
          result_(result),
          state_(new StoreState()),
          snapshot_(new unsigned char[StoreState::kMaxSnapshotBody]) {
        out_.reserve(2 * kWriteChunk + StoreState::kMaxSnapshotBody);
        state_->Clear();
        unsigned char header[kSegmentHeaderSize];
        PutSegmentHeader(header, 1);
        out_.insert(out_.end(), header, header + sizeof header);
        lastProgressMs_ = NowMs();
    }

    bool Record(const SegmentFile&, const RecordView& record) override {
        ++result_.recordsRead;
        const std::uint32_t time = RecordTime(record.op, record.stamp, record.body, record.size);
        // Senders' ticks are not strictly in order: a record from before the range that comes
        // after the opening snapshot was written is copied through, so the copy misses none
        // of the state it should open with.
        if (time < first_ && !openingWritten_) {
            state_->Apply(record.op, record.body, record.size);
        } else if (time <= second_ &&
                   (kinds_ == nullptr || kinds_[record.op] || record.op == kOpTimeAnchor)) {
            if (!WriteOpening()) {
                return false;
            }
            const unsigned char* frame = record.body - kFrameHeaderSize;
            out_.insert(out_.end(), frame, frame + record.frameSize());
            ++result_.recordsCopied;
            if (out_.size() >= kWriteChunk && !Drain()) {
                return false;
            }
        }
        if (result_.recordsRead % 32 == 0) {
            Progress(false);
        }
        return true;
    }

    void Trouble(const SegmentFile&, Problem, std::size_t, std::size_t) override {
        ++result_.problems;
    }

    void BeginSegment(const SegmentFile&, std::size_t) override { Progress(true); }

    // Puts down the opening snapshot (if no record of the range came) and what is buffered.
    bool Finish() { return WriteOpening() && Drain() && ok_; }
    void Progress(bool always) {
        if (progress_ == nullptr) {
            return;
        }
        const long long now = NowMs();
        if (always || now - lastProgressMs_ >= kProgressIntervalMs ||
            result_.recordsRead - lastProgressRecords_ >= kRecordsPerProgress) {
            progress_->Working(result_.recordsRead, result_.recordsCopied);
            lastProgressMs_ = now;
            lastProgressRecords_ = result_.recordsRead;
        }
    }

private:
    bool WriteOpening() {
        if (openingWritten_) {
            return true;
        }
        openingWritten_ = true;
        const std::size_t size =
            state_->Encode(false, kCauseCopy, snapshot_.get(), StoreState::kMaxSnapshotBody);
        if (size == 0) {
            ok_ = false;
            return false;
        }
        unsigned char header[kFrameHeaderSize];
        PutFrameHeader(header, kOpWriteFullState, first_, snapshot_.get(),
                       static_cast<std::uint32_t>(size));
        out_.insert(out_.end(), header, header + sizeof header);
        out_.insert(out_.end(), snapshot_.get(), snapshot_.get() + size);
        return true;
    }

    bool Drain() {
        if (!WriteAll(fd_, out_.data(), out_.size())) {
            ok_ = false;
            return false;
        }
        out_.clear();
        return true;
    }

    int fd_;
    const bool* kinds_;
    std::uint32_t first_;
    std::uint32_t second_;
    CopyProgress* progress_;
    CopyResult& result_;
    std::unique_ptr<StoreState> state_;
    std::unique_ptr<unsigned char[]> snapshot_;
    std::vector<unsigned char> out_;
    bool openingWritten_ = false;
    bool ok_ = true;
    long long lastProgressMs_ = 0;
    unsigned long long lastProgressRecords_ = 0;
};

}  // namespace

bool CopyRange(const std::string& source, const std::string& destination, std::uint32_t first,
               std::uint32_t second, CopyProgress* progress, CopyResult* result,
               const bool* kinds) {
    CopyResult local;
    CopyResult& counts = result != nullptr ? *result : local;
    counts = CopyResult();
    struct stat info;
    if (first > second || destination.empty() || lstat(destination.c_str(), &info) == 0 ||
        !IsDirectory(DirectoryOf(destination))) {
        return false;
    }
    std::vector<SegmentFile> files;
    if (!ResolveSegments(source, files)) {
        return false;
    }
    const int fd =
        open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0660);
    if (fd < 0) {
        return false;
    }
    bool ok = false;
    {
        CopySink sink(fd, first, second, progress, counts, kinds);
        ok = ReadJournal(source, sink) && sink.Finish();
        sink.Progress(true);
    }
    if (ok && fdatasync(fd) != 0) {
        ok = false;
    }
    if (close(fd) != 0) {
        ok = false;
    }
    if (!ok) {
        unlink(destination.c_str());
    }
    return ok;
}

}  // namespace mdj

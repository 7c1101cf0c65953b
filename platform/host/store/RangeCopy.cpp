#include "RangeCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>
#include <memory>
#include <vector>

#include "DataSync.h"
#include "JournalReader.h"
#include "RecordSchema.h"
#include "SegmentIndex.h"
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
        // A copy is a store of its own: its own identity, segment 1.
        SegmentHeader identity;
        identity.identity = NewStoreIdentity();
        identity.number = 1;
        unsigned char header[kSegmentHeaderSize];
        PutSegmentHeader(header, identity);
        out_.insert(out_.end(), header, header + sizeof header);
        lastProgressMs_ = NowMs();
    }

    bool Record(const SegmentFile&, const RecordView& record) override {
        ++result_.recordsRead;
        const std::uint32_t time = RecordTime(record.op, record.stamp, record.body, record.size);
        // Senders' ticks are not strictly in order: a record from before the range that comes
        // after the opening snapshot was written is copied through, so the copy misses none
        // of the state it should open with. Before the range a snapshot is the state, whatever
        // its time: reading may start at any snapshot and give the same copy.
        if (!openingWritten_ && (time < first_ || record.op == kOpWriteFullState)) {
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

    bool Opened() const { return openingWritten_; }
    // Whether records are chosen by kind (so none may be copied without decoding it).
    bool Filtering() const { return kinds_ != nullptr; }
    // A record known to lie in the range once the opening is written: copied as it is.
    bool CopyFrame(const RecordView& record) {
        ++result_.recordsRead;
        ++result_.recordsCopied;
        const unsigned char* frame = record.body - kFrameHeaderSize;
        out_.insert(out_.end(), frame, frame + record.frameSize());
        if (out_.size() >= kWriteChunk && !Drain()) {
            return false;
        }
        if (result_.recordsRead % 32 == 0) {
            Progress(false);
        }
        return true;
    }
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

// Whether a block must be read: always when the index says nothing of it or it is the store's
// last (the state at the end may be needed); before the range's first record when it may hold
// one; after it when it may hold a record that is not later than the range.
bool NeedsBlock(const IndexBlock& block, bool known, bool last, bool opened, std::uint32_t first,
                std::uint32_t second) {
    if (!known || last) {
        return true;
    }
    if (!opened) {
        return block.maxTime >= first && block.minTime <= second;
    }
    return block.minTime <= second;
}

bool ReadBlock(int fd, const SegmentFile& file, const IndexBlock& block, bool whole,
               std::vector<unsigned char>& data, CopySink& sink) {
    data.resize(block.length);
    std::size_t got = 0;
    while (got < block.length) {
        const ssize_t n = pread(fd, data.data() + got, block.length - got,
                                static_cast<off_t>(block.offset + got));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            sink.Trouble(file, Problem::kUnreadable, block.offset, block.length);
            return true;
        }
        got += static_cast<std::size_t>(n);
    }
    SegmentScanner scanner(data.data(), data.size(), block.offset);
    if (!whole) {
        return ScanRecords(file, scanner, sink);
    }
    // Every record of the block lies in the range: copied as it is, without going through the
    // state, once its frame and its body check out (a frame whose body is not its type is
    // dropped, as a read through the state drops it).
    for (SegmentScanner::Event event = scanner.Next(); event.kind != SegmentScanner::kEnd;
         event = scanner.Next()) {
        if (event.kind == SegmentScanner::kRecord &&
            !WalkRecord(event.record.op, event.record.body, event.record.size, nullptr)) {
            sink.Trouble(file, Problem::kMalformed, event.record.offset, event.record.frameSize());
        } else if (event.kind == SegmentScanner::kRecord) {
            if (!sink.CopyFrame(event.record)) {
                return false;
            }
        } else {
            sink.Trouble(file,
                         event.kind == SegmentScanner::kDamage ? Problem::kDamage : Problem::kTorn,
                         event.offset, event.length);
        }
    }
    return true;
}

// Reads a segment block by block as its index tells, skipping what the range does not need;
// a segment without a usable index is read whole. False when the copy is to stop.
bool CopySegment(const SegmentFile& file, bool store, bool lastSegment, std::uint32_t first,
                 std::uint32_t second, std::vector<unsigned char>& data, CopySink& sink) {
    std::vector<IndexBlock> blocks;
    const int fd = store ? open(file.path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC) : -1;
    struct stat info;
    unsigned char header[kSegmentHeaderSize];
    SegmentHeader parsed;
    if (fd >= 0 && fstat(fd, &info) == 0 &&
        pread(fd, header, sizeof header, 0) == static_cast<ssize_t>(sizeof header) &&
        ParseSegmentHeader(header, sizeof header, parsed) && parsed.number == file.number) {
        LoadSegmentIndex(file.path, header, static_cast<std::size_t>(info.st_size), blocks);
    }
    if (blocks.empty()) {
        if (fd >= 0) {
            close(fd);
        }
        return ReadSegment(file, store, data, sink);
    }
    sink.BeginSegment(file, static_cast<std::size_t>(info.st_size));
    // What follows the last indexed block (the block being written) is always read.
    IndexBlock tail;
    tail.offset = blocks.back().offset + blocks.back().length;
    tail.length = static_cast<std::uint32_t>(static_cast<std::size_t>(info.st_size) - tail.offset);
    const std::size_t indexed = blocks.size();
    if (tail.length > 0) {
        blocks.push_back(tail);
    }
    bool goOn = true;
    for (std::size_t i = 0; goOn && i < blocks.size(); ++i) {
        if (NeedsBlock(blocks[i], i < indexed, lastSegment && i + 1 == blocks.size(), sink.Opened(),
                       first, second)) {
            const bool whole = i < indexed && sink.Opened() && !sink.Filtering() &&
                               blocks[i].minTime >= first && blocks[i].maxTime <= second;
            goOn = ReadBlock(fd, file, blocks[i], whole, data, sink);
        }
    }
    close(fd);
    return goOn;
}

bool ReadForCopy(const std::string& source, std::uint32_t first, std::uint32_t second,
                 CopySink& sink) {
    JournalFiles files;
    if (!ResolveJournal(source, files) || files.segments.empty()) {
        return false;
    }
    std::vector<unsigned char> data;
    for (std::size_t i = 0; i < files.segments.size(); ++i) {
        if (!CopySegment(files.segments[i], files.store, i + 1 == files.segments.size(), first,
                         second, data, sink)) {
            break;
        }
    }
    return true;
}

}  // namespace

bool CopyRangeInto(const std::string& source, int fd, std::uint32_t first, std::uint32_t second,
                   CopyProgress* progress, CopyResult* result, const bool* kinds) {
    CopyResult local;
    CopyResult& counts = result != nullptr ? *result : local;
    counts = CopyResult();
    if (first > second) {
        return false;
    }
    bool ok = false;
    {
        CopySink sink(fd, first, second, progress, counts, kinds);
        ok = ReadForCopy(source, first, second, sink) && sink.Finish();
        sink.Progress(true);
    }
    return ok && hostsystem::SyncData(fd) == 0;
}

bool CopyRange(const std::string& source, const std::string& destination, std::uint32_t first,
               std::uint32_t second, CopyProgress* progress, CopyResult* result,
               const bool* kinds) {
    struct stat info;
    if (first > second || destination.empty() || lstat(destination.c_str(), &info) == 0 ||
        !IsDirectory(DirectoryOf(destination))) {
        return false;
    }
    JournalFiles files;
    if (!ResolveJournal(source, files) || files.segments.empty()) {
        return false;
    }
    const int fd = CreateNewFile(destination);
    if (fd < 0) {
        return false;
    }
    bool ok = CopyRangeInto(source, fd, first, second, progress, result, kinds);
    if (close(fd) != 0) {
        ok = false;
    }
    if (!ok) {
        unlink(destination.c_str());
    }
    return ok;
}

}  // namespace mdj

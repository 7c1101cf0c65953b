#include "DataStoreJournal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "BigEndian.h"
#include "DataSync.h"
#include "HostDomain.h"
#include "JournalFormat.h"
#include "PendingWrites.h"
#include "RecordSchema.h"
#include "StoreScan.h"
#include "Systick.h"

namespace {

// Records are handed to the file in batches: when this much has gathered, when the oldest has
// waited kWriteDelayMs, and whenever the process is about to sit idle (PendingWrites). A flood
// then costs one write() per batch, not one per message, and a reader of the live files is at
// most a few milliseconds behind.
const std::size_t kWriteThreshold = 64u << 10;
const unsigned long long kWriteDelayMs = 4;
const std::size_t kPendingCapacity =
    kWriteThreshold + mdj::kFrameHeaderSize + mdj::StoreState::kMaxSnapshotBody + 4096;
const std::size_t kMinMaxBytes = 2 * DataStoreJournal::kMinSegmentBytes;
const unsigned kCreateAttempts = 16;
// When no next segment can be made, the current one goes on past its size, to this many times
// it, and the roll is tried again this often.
const std::size_t kOverrunFactor = 2;
const unsigned long long kRollRetryMs = 1000;
// A new anchor at least this often, so a drifting tick source never leads readers far astray.
const std::uint32_t kAnchorEveryTicks = 10u * 60u * Systick::kTicksPerSecond;
// Between two loop passes the clock and the tick may disagree by this much before the clock
// counts as stepped (a pass lasts about a second; a stalled tick source is not a step).
const long long kClockStepMs = 2000;
// A real-time clock before this (2020-01-01) was never set: no anchor is better than a wrong one.
const long long kEarliestClockMs = 1577836800000LL;

std::size_t MaxBytesFromEnvironment() {
    const char* text = std::getenv("METADATA_STORE_MAX_BYTES");
    if (text == nullptr || *text == '\0') {
        return DataStoreJournal::kDefaultMaxBytes;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text, &end, 0);
    if (errno != 0 || *end != '\0' || text[0] == '-') {
        std::fprintf(stderr, "DataStore: ignoring METADATA_STORE_MAX_BYTES=%s\n", text);
        return DataStoreJournal::kDefaultMaxBytes;
    }
    if (value < kMinMaxBytes) {
        return kMinMaxBytes;
    }
    const unsigned long long cap = static_cast<std::size_t>(-1) / 2;
    return static_cast<std::size_t>(value > cap ? cap : value);
}

// Cuts the file at `path` to `size`, never through a symbolic link.
bool CutFile(const std::string& path, off_t size) {
    const int fd = mdj::OpenRegularFile(path, O_WRONLY);
    const bool cut = fd >= 0 && ftruncate(fd, size) == 0;
    if (fd >= 0) {
        close(fd);
    }
    return cut;
}

std::size_t FileSize(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? static_cast<std::size_t>(info.st_size) : 0;
}

}  // namespace

DataStoreJournal::DataStoreJournal(const std::string& basePath)
    : basePath_(basePath),
      maxBytes_(MaxBytesFromEnvironment()),
      segmentLimit_(maxBytes_ / 8 < kMinSegmentBytes ? kMinSegmentBytes : maxBytes_ / 8),
      pending_(new unsigned char[kPendingCapacity]),
      snapshot_(new unsigned char[mdj::StoreState::kMaxSnapshotBody]),
      state_(new mdj::StoreState()) {
    segments_.reserve(32);
}

DataStoreJournal::~DataStoreJournal() {
    Close();
}

bool DataStoreJournal::Open() {
    if (IsOpen()) {
        return true;
    }
    if (!mdj::WritableStoreDirectory(mdj::DirectoryOf(basePath_))) {
        return false;
    }
    if (!ExaminePrevious()) {
        return false;
    }
    const std::uint32_t next = segments_.empty() ? 1 : segments_.back().file.number + 1;
    state_->Clear();
    haveSyncTick_ = false;
    std::uint32_t number = next;
    const int fd = CreateSegmentFile(number);
    if (fd < 0) {
        std::fprintf(stderr, "DataStore: cannot create a segment of %s: %s\n", basePath_.c_str(),
                     std::strerror(errno));
        return false;
    }
    rollFailed_ = false;
    if (!StartSegment(fd, number, mdj::kCauseOpen)) {
        return false;
    }
    hostsystem::AddPendingWriter(&DataStoreJournal::WriteNow, this);
    return true;
}

// Finds how the last run ended and cuts off a record it left half written.
bool DataStoreJournal::ExaminePrevious() {
    mdj::StoreListing listing;
    if (!mdj::ScanStore(basePath_, listing)) {
        return false;
    }
    for (const mdj::ForeignFile& foreign : listing.foreign) {
        std::fprintf(stderr, "DataStore: foreign file %s left alone: %s\n",
                     foreign.file.path.c_str(), foreign.why.c_str());
    }
    // A store's identity is drawn once, when its first segment is made.
    identity_ = listing.identity != 0 ? listing.identity : mdj::NewStoreIdentity();
    std::vector<mdj::SegmentFile>& files = listing.segments;
    previousFound_ = false;
    previousClean_ = false;
    previousLastTick_ = 0xFFFFFFFFu;
    std::vector<unsigned char> data;
    while (!files.empty()) {
        const mdj::SegmentFile& last = files.back();
        if (!mdj::ReadWholeFile(last.path, data)) {
            return false;
        }
        if (data.size() < mdj::kSegmentHeaderSize) {
            // Created but cut off before its header was whole: nothing in it to keep.
            unlink(last.path.c_str());
            unlink(mdj::IndexPath(last.path).c_str());
            files.pop_back();
            continue;
        }
        mdj::SegmentScanner scanner(data.data(), data.size());
        std::uint8_t lastOp = 0;
        for (mdj::SegmentScanner::Event event = scanner.Next();
             event.kind != mdj::SegmentScanner::kEnd; event = scanner.Next()) {
            // Anchors are the store's own bookkeeping, not how the run ended.
            if (event.kind == mdj::SegmentScanner::kRecord &&
                event.record.op != mdj::kOpTimeAnchor) {
                lastOp = event.record.op;
                previousLastTick_ = event.record.stamp;
            }
        }
        if (!scanner.HeaderOk()) {
            // Its records are still read past the header: it is kept whole, torn end and all,
            // for mdstore to tell and read.
            std::fprintf(stderr, "DataStore: segment %s has a damaged header; left as it is\n",
                         last.path.c_str());
        } else if (scanner.GoodEnd() < data.size() &&
                   !CutFile(last.path, static_cast<off_t>(scanner.GoodEnd()))) {
            std::fprintf(stderr, "DataStore: cannot cut the torn end of %s: %s\n",
                         last.path.c_str(), std::strerror(errno));
        }
        previousFound_ = true;
        previousClean_ = lastOp == mdj::kOpReportShutdownData;
        break;
    }
    segments_.clear();
    totalBytes_ = 0;
    for (const mdj::SegmentFile& file : files) {
        const std::size_t bytes = FileSize(file.path);
        segments_.push_back(Segment{file, bytes});
        totalBytes_ += bytes;
    }
    return true;
}

void DataStoreJournal::EnforceBound() {
    while (!segments_.empty() && totalBytes_ + segmentLimit_ > maxBytes_) {
        unlink(segments_.front().file.path.c_str());
        unlink(mdj::IndexPath(segments_.front().file.path).c_str());
        totalBytes_ -= segments_.front().bytes;
        segments_.erase(segments_.begin());
    }
}

int DataStoreJournal::CreateSegmentFile(std::uint32_t& number) {
    for (unsigned attempt = 0; attempt < kCreateAttempts; ++attempt, ++number) {
        const int fd = mdj::CreateNewFile(mdj::SegmentPath(basePath_, number));
        if (fd >= 0 || errno != EEXIST) {
            return fd;
        }
    }
    return -1;
}

bool DataStoreJournal::StartSegment(int fd, std::uint32_t number, std::uint8_t cause) {
    EnforceBound();
    fd_ = fd;
    segments_.push_back(Segment{mdj::SegmentFile{number, mdj::SegmentPath(basePath_, number)}, 0});
    number_ = segments_.back().file.number;
    unsigned char header[mdj::kSegmentHeaderSize];
    mdj::SegmentHeader identity;
    identity.identity = identity_;
    identity.number = number_;
    mdj::PutSegmentHeader(header, identity);
    index_.Open(segments_.back().file.path, header);
    std::memcpy(pending_.get() + pendingSize_, header, sizeof header);
    pendingSize_ += sizeof header;
    fileBytes_ = 0;
    segmentBytes_ = sizeof header;
    totalBytes_ += sizeof header;
    segmentRecords_ = 0;
    anchored_ = false;
    if (!AppendSnapshot(false, cause)) {
        return false;
    }
    ClockReading now;
    if (ReadClocks(now)) {
        AppendAnchor(now, mdj::kAnchorSegment);
    }
    return true;
}

bool DataStoreJournal::ReadClocks(ClockReading& now) {
    struct timespec real;
    if (clock_gettime(CLOCK_REALTIME, &real) != 0) {
        return false;
    }
    now.utcMs = static_cast<long long>(real.tv_sec) * 1000 + real.tv_nsec / 1000000;
    now.tick = Systick().SystemTick();
    return now.tick != Systick::kUnavailable && now.utcMs >= kEarliestClockMs;
}

// Straight into the frame buffer and the state: it may be written while a report's body waits
// in the scratch buffer (a roll), and it never rolls a segment itself.
bool DataStoreJournal::AppendAnchor(const ClockReading& now, std::uint8_t reason) {
    unsigned char buffer[16];
    mdj::BodyWriter body(buffer, sizeof buffer);
    body.U32(static_cast<std::uint32_t>(now.utcMs / 1000));
    body.U16(static_cast<std::uint16_t>(now.utcMs % 1000));
    body.U32(now.tick);
    body.U8(reason);
    if (!body.Ok() || !AppendFrame(mdj::kOpTimeAnchor, buffer, body.Size())) {
        return false;
    }
    state_->Apply(mdj::kOpTimeAnchor, buffer, body.Size());
    // No report: a segment still keeps its snapshot and at least one report before it rolls.
    --segmentRecords_;
    anchored_ = true;
    anchor_ = now;
    return true;
}

void DataStoreJournal::KeepAnchored() {
    ClockReading now;
    if (!ReadClocks(now)) {
        havePass_ = false;
        return;
    }
    const long long drift =
        (now.utcMs - lastPass_.utcMs) - static_cast<std::int32_t>(now.tick - lastPass_.tick);
    if (!anchored_) {
        AppendAnchor(now, mdj::kAnchorSegment);
    } else if (havePass_ && (drift > kClockStepMs || drift < -kClockStepMs)) {
        AppendAnchor(now, mdj::kAnchorClockStep);
    } else if (now.tick - anchor_.tick >= kAnchorEveryTicks) {
        AppendAnchor(now, mdj::kAnchorPeriodic);
    }
    havePass_ = true;
    lastPass_ = now;
}

// The next segment is made before this one ends: when it cannot be (its names taken, the
// directory not writable), writing goes on here past the segment's size, and the roll is tried
// again a second later.
bool DataStoreJournal::Roll() {
    if (rollFailed_ && hostsystem::MonotonicMs() - rollTriedMs_ < kRollRetryMs) {
        return true;
    }
    std::uint32_t number = number_ + 1;
    const int fd = CreateSegmentFile(number);
    if (fd < 0) {
        if (!rollFailed_) {
            std::fprintf(stderr,
                         "DataStore: cannot create the segment after %u of %s: %s; writing on in "
                         "segment %u past its size\n",
                         number_, basePath_.c_str(), std::strerror(errno), number_);
        }
        rollFailed_ = true;
        rollTriedMs_ = hostsystem::MonotonicMs();
        return true;
    }
    if (rollFailed_) {
        std::fprintf(stderr,
                     "DataStore: segment %u of %s ended at %zu bytes; rolling works again\n",
                     number_, basePath_.c_str(), segmentBytes_);
        rollFailed_ = false;
    }
    index_.EndBlock(segmentBytes_);
    Flush(true);
    index_.Close();
    segments_.back().bytes = fileBytes_;
    close(fd_);
    fd_ = -1;
    return StartSegment(fd, number, mdj::kCauseSegment);
}

void DataStoreJournal::Close() {
    hostsystem::RemovePendingWriter(&DataStoreJournal::WriteNow, this);
    if (!IsOpen()) {
        return;
    }
    index_.EndBlock(segmentBytes_);
    Flush(true);
    index_.Close();
    close(fd_);
    fd_ = -1;
}

void DataStoreJournal::TimerTick(std::uint32_t tick) {
    currentTick_ = tick;
    if (!IsOpen()) {
        return;
    }
    KeepAnchored();
    // The sync to flash waits for a second to pass; the write of a batch only for
    // kWriteDelayMs (or for the endpoint to go idle, or for the batch to fill).
    bool sync = false;
    if (tick == Systick::kUnavailable) {
        // No clock to schedule by: every pass puts the data down.
        sync = true;
    } else if (!haveSyncTick_) {
        haveSyncTick_ = true;
        lastSyncTick_ = tick;
    } else if (tick - lastSyncTick_ >= Systick::kTicksPerSecond) {
        // Unsigned difference: a wrapped or restarted tick also counts as time gone by.
        sync = true;
        lastSyncTick_ = tick;
    }
    if (sync ||
        (pendingSize_ > 0 && hostsystem::MonotonicMs() - pendingSinceMs_ >= kWriteDelayMs)) {
        Flush(sync);
    }
}

void DataStoreJournal::WriteNow(void* journal) {
    DataStoreJournal* self = static_cast<DataStoreJournal*>(journal);
    if (self->IsOpen()) {
        self->WritePending();
    }
}

bool DataStoreJournal::AppendFrame(std::uint8_t op, const unsigned char* body, std::size_t size) {
    const std::size_t frame = mdj::kFrameHeaderSize + size;
    if (size > mdj::kMaxRecordBody || frame > kPendingCapacity) {
        return false;
    }
    if (pendingSize_ + frame > kPendingCapacity && !WritePending()) {
        return false;
    }
    if (pendingSize_ == 0) {
        pendingSinceMs_ = hostsystem::MonotonicMs();
    }
    unsigned char header[mdj::kFrameHeaderSize];
    mdj::PutFrameHeader(header, op, currentTick_, body, static_cast<std::uint32_t>(size));
    std::memcpy(pending_.get() + pendingSize_, header, sizeof header);
    std::memcpy(pending_.get() + pendingSize_ + sizeof header, body, size);
    pendingSize_ += frame;
    index_.Note(mdj::RecordTime(op, currentTick_, body, size));
    segmentBytes_ += frame;
    totalBytes_ += frame;
    ++segmentRecords_;
    if (pendingSize_ >= kWriteThreshold) {
        WritePending();
    }
    return true;
}

bool DataStoreJournal::AppendSnapshot(bool force, std::uint8_t cause) {
    return PutSnapshot(
        state_->Encode(force, cause, snapshot_.get(), mdj::StoreState::kMaxSnapshotBody));
}

// Writes the snapshot encoded in snapshot_; it begins a block of the index.
bool DataStoreJournal::PutSnapshot(std::size_t size) {
    index_.BeginBlock(segmentBytes_);
    if (size == 0 || !AppendFrame(mdj::kOpWriteFullState, snapshot_.get(), size)) {
        return false;
    }
    // A large state makes for longer blocks, so that snapshots stay a small part of the store.
    blockLimit_ = 8 * size > mdj::kBlockBytes ? 8 * size : mdj::kBlockBytes;
    state_->MarkWritten();
    return true;
}

// Past its size a block closes with a snapshot, where a copy can start reading; not when the
// snapshot and the next record would take the segment past its limit (it rolls soon anyway).
void DataStoreJournal::Checkpoint(std::size_t nextFrame) {
    if (segmentBytes_ - index_.BlockStart() < blockLimit_) {
        return;
    }
    const std::size_t size =
        state_->Encode(false, mdj::kCauseIndex, snapshot_.get(), mdj::StoreState::kMaxSnapshotBody);
    if (size != 0 && segmentBytes_ + mdj::kFrameHeaderSize + size + nextFrame <= segmentLimit_) {
        PutSnapshot(size);
    }
}

bool DataStoreJournal::Append(std::uint8_t op, const unsigned char* body, std::size_t size) {
    if (!IsOpen()) {
        return false;
    }
    // A segment always keeps its opening snapshot and at least one record after it.
    const std::size_t grown = segmentBytes_ + mdj::kFrameHeaderSize + size;
    if (segmentRecords_ > 1 && grown > segmentLimit_ && !Roll()) {
        return false;
    }
    if (rollFailed_ && grown > kOverrunFactor * segmentLimit_) {
        if (!overrunFull_) {
            std::fprintf(stderr,
                         "DataStore: segment %u of %s is full and no next one can be made; "
                         "reports are refused until one can\n",
                         number_, basePath_.c_str());
        }
        overrunFull_ = true;
        return false;
    }
    overrunFull_ = false;
    Checkpoint(mdj::kFrameHeaderSize + size);
    if (!AppendFrame(op, body, size)) {
        return false;
    }
    state_->Apply(op, body, size);
    return true;
}

bool DataStoreJournal::WriteFullState(bool force) {
    if (!IsOpen()) {
        return false;
    }
    if (!force && !state_->ChangedSinceWritten()) {
        return true;
    }
    const std::size_t size =
        state_->Encode(force, mdj::kCauseCall, snapshot_.get(), mdj::StoreState::kMaxSnapshotBody);
    if (segmentRecords_ > 1 && segmentBytes_ + mdj::kFrameHeaderSize + size > segmentLimit_) {
        // A new segment opens with the same snapshot; without one it goes here.
        if (!Roll()) {
            return false;
        }
        if (!rollFailed_) {
            return true;
        }
    }
    return AppendSnapshot(force, mdj::kCauseCall);
}

bool DataStoreJournal::ReportStartup() {
    mdj::BodyWriter body(scratch_, sizeof scratch_);
    body.Bool(previousFound_);
    body.Bool(previousClean_);
    body.U32(previousLastTick_);
    return body.Ok() && Append(mdj::kOpReportShutdownDataAtStartup, scratch_, body.Size());
}

bool DataStoreJournal::WritePending() {
    if (pendingSize_ == 0) {
        return true;
    }
    if (mdj::WriteAll(fd_, pending_.get(), pendingSize_)) {
        if (droppedBytes_ > 0) {
            std::fprintf(stderr,
                         "DataStore: writing to segment %u works again; %llu bytes of records "
                         "were dropped\n",
                         static_cast<unsigned>(number_), droppedBytes_);
            droppedBytes_ = 0;
        }
        fileBytes_ += pendingSize_;
        pendingSize_ = 0;
        unsynced_ = true;
        index_.Write();
        return true;
    }
    index_.Drop();
    // Disk full or failing: drop what could not be written and cut any part of it that did
    // reach the file, so the records already there stay whole. Each episode is told when it
    // starts and when writing works again.
    if (droppedBytes_ == 0) {
        std::fprintf(stderr,
                     "DataStore: write to segment %u failed: %s; records are dropped until "
                     "writing works again\n",
                     static_cast<unsigned>(number_), std::strerror(errno));
    }
    droppedBytes_ += pendingSize_;
    if (ftruncate(fd_, static_cast<off_t>(fileBytes_)) == 0) {
        lseek(fd_, static_cast<off_t>(fileBytes_), SEEK_SET);
    }
    totalBytes_ -= segmentBytes_ - fileBytes_;
    segmentBytes_ = fileBytes_;
    pendingSize_ = 0;
    return false;
}

void DataStoreJournal::Flush(bool sync) {
    WritePending();
    if (sync && unsynced_) {
        hostsystem::SyncData(fd_);
        unsynced_ = false;
    }
}

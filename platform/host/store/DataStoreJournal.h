// The writing side of the metadata store: frames records into the current segment, keeps the
// current state for the snapshots, rolls segments at their size, keeps the store within its
// size bound and puts the data on disk on the tick schedule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SegmentFiles.h"
#include "SegmentIndex.h"
#include "StoreState.h"

class DataStoreJournal {
public:
    static const std::size_t kDefaultMaxBytes = 64u << 20;
    static const std::size_t kMinSegmentBytes = 64u << 10;
    // Record bodies of single reports are far smaller; a snapshot has its own buffer.
    static const std::size_t kScratchBytes = 4096;

    explicit DataStoreJournal(const std::string& basePath);
    ~DataStoreJournal();
    DataStoreJournal(const DataStoreJournal&) = delete;
    DataStoreJournal& operator=(const DataStoreJournal&) = delete;

    bool Open();
    void Close();
    bool IsOpen() const { return fd_ >= 0; }

    void TimerTick(std::uint32_t tick);
    std::uint32_t CurrentTick() const { return currentTick_; }

    // Buffer for the body of the next record.
    unsigned char* Scratch() { return scratch_; }
    // Writes one record stamped with the current tick and takes it into the state.
    bool Append(std::uint8_t op, const unsigned char* body, std::size_t size);
    bool WriteFullState(bool force);
    // The record telling how the previous run ended, as found by Open.
    bool ReportStartup();

    std::size_t MaxBytes() const { return maxBytes_; }
    std::size_t SegmentBytes() const { return segmentLimit_; }

private:
    struct Segment {
        mdj::SegmentFile file;
        std::size_t bytes;
    };
    bool ExaminePrevious();
    // Makes the file of the next segment, from `number` on past names that are taken (number is
    // left at the one made); -1 with errno when none can be made.
    int CreateSegmentFile(std::uint32_t& number);
    // Begins segment `number` in `fd`: its header, the state, an anchor.
    bool StartSegment(int fd, std::uint32_t number, std::uint8_t cause);
    bool Roll();
    void EnforceBound();
    bool AppendFrame(std::uint8_t op, const unsigned char* body, std::size_t size);
    bool AppendSnapshot(bool force, std::uint8_t cause);
    bool PutSnapshot(std::size_t size);
    void Checkpoint(std::size_t nextFrame);
    bool WritePending();
    // The PendingWrites hook: the process is about to wait for input, or to read the files.
    static void WriteNow(void* journal);
    void Flush(bool sync);
    // Time anchors: the real-time clock beside the system tick (see TimeAnchor).
    struct ClockReading {
        long long utcMs;
        std::uint32_t tick;
    };
    static bool ReadClocks(ClockReading& now);
    bool AppendAnchor(const ClockReading& now, std::uint8_t reason);
    void KeepAnchored();

    std::string basePath_;
    std::size_t maxBytes_;
    std::size_t segmentLimit_;
    int fd_ = -1;
    std::vector<Segment> segments_;  // oldest first; the last is the one being written
    std::uint64_t identity_ = 0;
    std::uint32_t number_ = 0;
    std::size_t fileBytes_ = 0;     // of the current segment, on disk
    std::size_t segmentBytes_ = 0;  // of the current segment, with what is still buffered
    std::size_t totalBytes_ = 0;    // of every segment, with what is still buffered
    unsigned segmentRecords_ = 0;
    bool unsynced_ = false;
    bool rollFailed_ = false;  // no next segment could be made: the current one runs over
    unsigned long long rollTriedMs_ = 0;
    bool overrunFull_ = false;  // and it has run over as far as it may

    std::uint32_t currentTick_ = 0xFFFFFFFFu;
    std::uint32_t lastSyncTick_ = 0;
    bool haveSyncTick_ = false;

    bool previousFound_ = false;
    bool previousClean_ = false;
    std::uint32_t previousLastTick_ = 0xFFFFFFFFu;
    unsigned long long droppedBytes_ = 0;  // since the current write failure began; 0: none

    mdj::IndexWriter index_;
    std::size_t blockLimit_ = mdj::kBlockBytes;

    bool anchored_ = false;  // the current segment holds an anchor
    ClockReading anchor_ = {0, 0};
    bool havePass_ = false;
    ClockReading lastPass_ = {0, 0};

    std::unique_ptr<unsigned char[]> pending_;
    std::size_t pendingSize_ = 0;
    unsigned long long pendingSinceMs_ = 0;  // when the oldest buffered record was added
    std::unique_ptr<unsigned char[]> snapshot_;
    std::unique_ptr<mdj::StoreState> state_;
    unsigned char scratch_[kScratchBytes];
};

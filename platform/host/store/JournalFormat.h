// Framing of the metadata files. A segment is a 16-byte header followed by records:
//
//   header: "MDJ" 0x1A | version u16 | reserved u16 | store identity u64 | segment number u32 |
//           CRC-32C of bytes 0-19
//   record: magic 0xC35A u16 | type u8 | reserved u8 | body length u32 | store tick u32 |
//           CRC-32C of bytes 2-11 and the body u32 | body
//
// All numbers big-endian. The CRC covers every byte but the magic, which is checked on its
// own, so any changed bit is noticed. The magic lets a reader find the next record after
// damage; a candidate counts only when its length fits and its CRC matches.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mdj {

const std::size_t kSegmentHeaderSize = 24;
const std::size_t kFrameHeaderSize = 16;
// 2: the header carries the store's identity.
const std::uint16_t kFormatVersion = 2;
const std::uint16_t kRecordMagic = 0xC35A;
// No record body is larger (a snapshot is far below it).
const std::uint32_t kMaxRecordBody = 1u << 20;

// Who a segment belongs to: the identity its store drew when it was first created (every
// segment of a store carries it; a copy draws its own) and its place in that store.
struct SegmentHeader {
    std::uint64_t identity = 0;
    std::uint32_t number = 0;
};

void PutSegmentHeader(unsigned char (&out)[kSegmentHeaderSize], const SegmentHeader& header);
// False when the header is damaged or of another version.
bool ParseSegmentHeader(const unsigned char* data, std::size_t size, SegmentHeader& header);
// True when the `size` bytes at `data` begin with the segment magic, or with as much of it as
// they hold: all a reader has to tell a damaged segment from a file of another kind.
bool StartsWithSegmentMagic(const unsigned char* data, std::size_t size);
// A fresh identity, never 0.
std::uint64_t NewStoreIdentity();

// Writes the frame header of a record whose body is `body`.
void PutFrameHeader(unsigned char (&out)[kFrameHeaderSize], std::uint8_t op, std::uint32_t stamp,
                    const unsigned char* body, std::uint32_t size);

struct RecordView {
    std::uint8_t op = 0;
    std::uint32_t stamp = 0;  // the store's tick when the record was written
    const unsigned char* body = nullptr;
    std::uint32_t size = 0;
    std::size_t offset = 0;  // of the frame in the file
    std::size_t frameSize() const { return kFrameHeaderSize + size; }
};

class SegmentWindow;

// Walks the records of one segment, held in memory or read through a window onto its file. The
// events are the same either way; a record's bytes stay valid until the next call of Next().
class SegmentScanner {
public:
    enum Kind {
        kRecord,  // a record whose frame checks out
        kDamage,  // bytes that are no record, followed by good records
        kTorn,    // bytes after the last good record: a write cut short, or damage at the end
        kEnd,
    };
    struct Event {
        Kind kind = kEnd;
        RecordView record;       // kRecord
        std::size_t offset = 0;  // kDamage, kTorn
        std::size_t length = 0;
    };

    SegmentScanner(const unsigned char* data, std::size_t size);
    // Records only: `data` holds the bytes of a segment from `offset` on, which is where a
    // record begins; offsets are told as in the file.
    SegmentScanner(const unsigned char* data, std::size_t size, std::size_t offset);
    // The file `window` has open, read as the scan goes.
    explicit SegmentScanner(SegmentWindow& window);
    bool HeaderOk() const { return headerOk_; }
    std::uint32_t Segment() const { return header_.number; }
    const SegmentHeader& Header() const { return header_; }
    Event Next();
    // The end of the last good record (or of the header): where a torn tail is cut off.
    std::size_t GoodEnd() const { return goodEnd_; }

private:
    const unsigned char* Bytes(std::size_t pos, std::size_t count);
    bool RecordAt(std::size_t pos, RecordView& view);
    Event Resynchronise();

    // What is held: [base_, base_ + size_) of the file, at data_. Positions are the file's.
    const unsigned char* data_;
    std::size_t size_;
    std::size_t base_ = 0;
    std::size_t end_;  // of the segment's bytes
    SegmentWindow* window_ = nullptr;
    std::size_t pos_;
    std::size_t goodEnd_;
    SegmentHeader header_;
    bool headerOk_ = false;
    bool shortReported_ = false;
};

}  // namespace mdj

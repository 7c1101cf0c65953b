// Framing of the metadata files. A segment is a 16-byte header followed by records:
//
//   header: "MDJ" 0x1A | version u16 | reserved u16 | segment number u32 | CRC-32C of bytes 0-11
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

const std::size_t kSegmentHeaderSize = 16;
const std::size_t kFrameHeaderSize = 16;
const std::uint16_t kFormatVersion = 1;
const std::uint16_t kRecordMagic = 0xC35A;
// No record body is larger (a snapshot is far below it).
const std::uint32_t kMaxRecordBody = 1u << 20;

void PutSegmentHeader(unsigned char (&out)[kSegmentHeaderSize], std::uint32_t segment);
// False when the header is damaged or of another version.
bool ParseSegmentHeader(const unsigned char* data, std::size_t size, std::uint32_t& segment);

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

// Walks the records of one segment held in memory.
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
    bool HeaderOk() const { return headerOk_; }
    std::uint32_t Segment() const { return segment_; }
    Event Next();
    // The end of the last good record (or of the header): where a torn tail is cut off.
    std::size_t GoodEnd() const { return goodEnd_; }

private:
    bool RecordAt(std::size_t pos, RecordView& view) const;

    const unsigned char* data_;
    std::size_t size_;
    std::size_t pos_;
    std::size_t goodEnd_;
    std::uint32_t segment_ = 0;
    bool headerOk_ = false;
    bool shortReported_ = false;
};

}  // namespace mdj

#include "JournalFormat.h"

#include "BigEndian.h"
#include "Crc32c.h"

namespace mdj {

namespace {
const unsigned char kSegmentMagic[4] = {'M', 'D', 'J', 0x1A};

std::uint32_t FrameCrc(const unsigned char* header, const unsigned char* body, std::size_t size) {
    return Crc32c(Crc32c(0, header + 2, 10), body, size);
}
}  // namespace

void PutSegmentHeader(unsigned char (&out)[kSegmentHeaderSize], std::uint32_t segment) {
    for (int i = 0; i < 4; ++i) {
        out[i] = kSegmentMagic[i];
    }
    PutBe16(out + 4, kFormatVersion);
    PutBe16(out + 6, 0);
    PutBe32(out + 8, segment);
    PutBe32(out + 12, Crc32c(0, out, 12));
}

bool ParseSegmentHeader(const unsigned char* data, std::size_t size, std::uint32_t& segment) {
    if (size < kSegmentHeaderSize) {
        return false;
    }
    for (int i = 0; i < 4; ++i) {
        if (data[i] != kSegmentMagic[i]) {
            return false;
        }
    }
    if (GetBe16(data + 4) != kFormatVersion || GetBe16(data + 6) != 0 ||
        GetBe32(data + 12) != Crc32c(0, data, 12)) {
        return false;
    }
    segment = GetBe32(data + 8);
    return true;
}

void PutFrameHeader(unsigned char (&out)[kFrameHeaderSize], std::uint8_t op, std::uint32_t stamp,
                    const unsigned char* body, std::uint32_t size) {
    PutBe16(out, kRecordMagic);
    out[2] = op;
    out[3] = 0;
    PutBe32(out + 4, size);
    PutBe32(out + 8, stamp);
    PutBe32(out + 12, FrameCrc(out, body, size));
}

SegmentScanner::SegmentScanner(const unsigned char* data, std::size_t size)
    : data_(data), size_(size), pos_(0), goodEnd_(0) {
    headerOk_ = ParseSegmentHeader(data, size, segment_);
    // A damaged header still leaves the records after it readable.
    pos_ = size < kSegmentHeaderSize ? size : kSegmentHeaderSize;
    goodEnd_ = headerOk_ ? kSegmentHeaderSize : 0;
}

bool SegmentScanner::RecordAt(std::size_t pos, RecordView& view) const {
    if (size_ - pos < kFrameHeaderSize) {
        return false;
    }
    const unsigned char* frame = data_ + pos;
    if (GetBe16(frame) != kRecordMagic || frame[3] != 0) {
        return false;
    }
    const std::uint32_t length = GetBe32(frame + 4);
    if (length > kMaxRecordBody || size_ - pos - kFrameHeaderSize < length) {
        return false;
    }
    const unsigned char* body = frame + kFrameHeaderSize;
    if (GetBe32(frame + 12) != FrameCrc(frame, body, length)) {
        return false;
    }
    view.op = frame[2];
    view.stamp = GetBe32(frame + 8);
    view.body = body;
    view.size = length;
    view.offset = pos;
    return true;
}

SegmentScanner::Event SegmentScanner::Next() {
    Event event;
    if (pos_ >= size_) {
        if (size_ < kSegmentHeaderSize && !shortReported_) {
            // A file cut before its header was whole: report it once as torn.
            shortReported_ = true;
            event.kind = kTorn;
            event.offset = 0;
            event.length = size_;
        }
        return event;
    }
    if (RecordAt(pos_, event.record)) {
        event.kind = kRecord;
        pos_ += event.record.frameSize();
        goodEnd_ = pos_;
        return event;
    }
    RecordView next;
    for (std::size_t p = pos_ + 1; p + kFrameHeaderSize <= size_; ++p) {
        if (data_[p] == (kRecordMagic >> 8) && RecordAt(p, next)) {
            event.kind = kDamage;
            event.offset = pos_;
            event.length = p - pos_;
            pos_ = p;
            return event;
        }
    }
    event.kind = kTorn;
    event.offset = pos_;
    event.length = size_ - pos_;
    pos_ = size_;
    return event;
}

}  // namespace mdj

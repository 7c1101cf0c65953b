#include "JournalFormat.h"

#include <fcntl.h>
#include <unistd.h>
#include <cstring>
#include <ctime>

#include "BigEndian.h"
#include "Crc32c.h"

namespace mdj {

namespace {
const unsigned char kSegmentMagic[4] = {'M', 'D', 'J', 0x1A};

std::uint32_t FrameCrc(const unsigned char* header, const unsigned char* body, std::size_t size) {
    return Crc32c(Crc32c(0, header + 2, 10), body, size);
}
}  // namespace

void PutSegmentHeader(unsigned char (&out)[kSegmentHeaderSize], const SegmentHeader& header) {
    for (int i = 0; i < 4; ++i) {
        out[i] = kSegmentMagic[i];
    }
    PutBe16(out + 4, kFormatVersion);
    PutBe16(out + 6, 0);
    PutBe32(out + 8, static_cast<std::uint32_t>(header.identity >> 32));
    PutBe32(out + 12, static_cast<std::uint32_t>(header.identity));
    PutBe32(out + 16, header.number);
    PutBe32(out + 20, Crc32c(0, out, 20));
}

bool ParseSegmentHeader(const unsigned char* data, std::size_t size, SegmentHeader& header) {
    if (size < kSegmentHeaderSize) {
        return false;
    }
    for (int i = 0; i < 4; ++i) {
        if (data[i] != kSegmentMagic[i]) {
            return false;
        }
    }
    if (GetBe16(data + 4) != kFormatVersion || GetBe16(data + 6) != 0 ||
        GetBe32(data + 20) != Crc32c(0, data, 20)) {
        return false;
    }
    header.identity = (static_cast<std::uint64_t>(GetBe32(data + 8)) << 32) | GetBe32(data + 12);
    header.number = GetBe32(data + 16);
    return true;
}

std::uint64_t NewStoreIdentity() {
    std::uint64_t identity = 0;
    const int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        unsigned char bytes[8] = {};
        if (read(fd, bytes, sizeof bytes) == static_cast<ssize_t>(sizeof bytes)) {
            std::memcpy(&identity, bytes, sizeof identity);
        }
        close(fd);
    }
    // Without the kernel's randomness two stores still differ by time and process.
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    identity ^= (static_cast<std::uint64_t>(now.tv_sec) << 32) ^
                static_cast<std::uint64_t>(now.tv_nsec) ^
                (static_cast<std::uint64_t>(getpid()) << 20);
    return identity == 0 ? 1 : identity;
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
    headerOk_ = ParseSegmentHeader(data, size, header_);
    // A damaged header still leaves the records after it readable.
    pos_ = size < kSegmentHeaderSize ? size : kSegmentHeaderSize;
    goodEnd_ = headerOk_ ? kSegmentHeaderSize : 0;
}

SegmentScanner::SegmentScanner(const unsigned char* data, std::size_t size, std::size_t offset)
    : data_(data),
      size_(size),
      base_(offset),
      pos_(0),
      goodEnd_(0),
      headerOk_(true),
      shortReported_(true) {}

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
    view.offset = base_ + pos;
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
            event.offset = base_ + pos_;
            event.length = p - pos_;
            pos_ = p;
            return event;
        }
    }
    event.kind = kTorn;
    event.offset = base_ + pos_;
    event.length = size_ - pos_;
    pos_ = size_;
    return event;
}

}  // namespace mdj

#include "JournalFormat.h"

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>
#include <ctime>

#include "BigEndian.h"
#include "Crc32c.h"
#include "SegmentWindow.h"

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

bool StartsWithSegmentMagic(const unsigned char* data, std::size_t size) {
    return std::memcmp(data, kSegmentMagic, std::min(size, sizeof kSegmentMagic)) == 0;
}

bool ParseSegmentHeader(const unsigned char* data, std::size_t size, SegmentHeader& header) {
    if (size < kSegmentHeaderSize || !StartsWithSegmentMagic(data, size)) {
        return false;
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
    : data_(data), size_(size), end_(size), pos_(0), goodEnd_(0) {
    headerOk_ = ParseSegmentHeader(data, size, header_);
    // A damaged header still leaves the records after it readable.
    pos_ = std::min(end_, kSegmentHeaderSize);
    goodEnd_ = headerOk_ ? kSegmentHeaderSize : 0;
}

SegmentScanner::SegmentScanner(const unsigned char* data, std::size_t size, std::size_t offset)
    : data_(data),
      size_(size),
      base_(offset),
      end_(offset + size),
      pos_(offset),
      goodEnd_(offset),
      headerOk_(true),
      shortReported_(true) {}

SegmentScanner::SegmentScanner(SegmentWindow& window)
    : data_(nullptr), size_(0), end_(window.Size()), window_(&window), pos_(0), goodEnd_(0) {
    const unsigned char* header = Bytes(0, kSegmentHeaderSize);
    headerOk_ = header != nullptr && ParseSegmentHeader(header, kSegmentHeaderSize, header_);
    pos_ = std::min(end_, kSegmentHeaderSize);
    goodEnd_ = headerOk_ ? kSegmentHeaderSize : 0;
}

// The bytes [pos, pos + count) of the segment, moving the window on when it must; null when the
// segment ends before.
const unsigned char* SegmentScanner::Bytes(std::size_t pos, std::size_t count) {
    if (window_ != nullptr && pos + count > base_ + size_) {
        window_->Hold(pos, count);
        data_ = window_->Data();
        base_ = window_->Start();
        size_ = window_->Held();
        end_ = window_->Size();
    }
    return pos >= base_ && pos + count <= base_ + size_ ? data_ + (pos - base_) : nullptr;
}

bool SegmentScanner::RecordAt(std::size_t pos, RecordView& view) {
    const unsigned char* frame = Bytes(pos, kFrameHeaderSize);
    if (frame == nullptr || GetBe16(frame) != kRecordMagic || frame[3] != 0) {
        return false;
    }
    const std::uint32_t length = GetBe32(frame + 4);
    if (length > kMaxRecordBody) {
        return false;
    }
    frame = Bytes(pos, kFrameHeaderSize + length);  // the window may have moved
    if (frame == nullptr) {
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
    if (pos_ >= end_) {
        if (end_ < kSegmentHeaderSize && !shortReported_) {
            // A file cut before its header was whole: report it once as torn.
            shortReported_ = true;
            event.kind = kTorn;
            event.offset = 0;
            event.length = end_;
        }
        return event;
    }
    if (RecordAt(pos_, event.record)) {
        event.kind = kRecord;
        pos_ += event.record.frameSize();
        goodEnd_ = pos_;
        return event;
    }
    return Resynchronise();
}

// After bytes at pos_ that are no record: damage up to the next record that checks out, or a
// torn end when none does.
SegmentScanner::Event SegmentScanner::Resynchronise() {
    Event event;
    RecordView next;
    std::size_t p = pos_ + 1;
    for (const unsigned char* at = Bytes(p, kFrameHeaderSize); at != nullptr;
         at = Bytes(p, kFrameHeaderSize)) {
        // A record begins with the magic's first byte: look for one among the places whose
        // frame header is held.
        const std::size_t span = base_ + size_ - kFrameHeaderSize + 1 - p;
        const void* magic = std::memchr(at, kRecordMagic >> 8, span);
        if (magic == nullptr) {
            p += span;
            continue;
        }
        p += static_cast<std::size_t>(static_cast<const unsigned char*>(magic) - at);
        if (RecordAt(p, next)) {
            event.kind = kDamage;
            event.offset = pos_;
            event.length = p - pos_;
            pos_ = p;
            return event;
        }
        ++p;
    }
    if (pos_ < end_) {  // (a file cut back while it is read may end before pos_)
        event.kind = kTorn;
        event.offset = pos_;
        event.length = end_ - pos_;
    }
    pos_ = end_;
    return event;
}

}  // namespace mdj

#include "Backlog.h"

#include <cstring>
#include <new>

#include "IpcInternal.h"
#include "LinxIpc.h"

namespace hostipc {
namespace {

constexpr std::size_t RecordSize(std::size_t senderLength, std::size_t payloadLength) {
    return (16 + senderLength + payloadLength + 7) & ~static_cast<std::size_t>(7);
}

constexpr std::size_t kLargestRecord = RecordSize(kMaxNameLength, IpcMessage::kMaxPayload);

}  // namespace

const std::size_t Backlog::kMaxMessages;
const std::size_t Backlog::kBytes;
const std::size_t Backlog::kNone;

bool Backlog::Allocate() {
    static_assert(sizeof(Head) == 16, "record header is 16 bytes");
    static_assert(kBytes >= 2 * kLargestRecord, "room for the largest message and more");
    if (!buffer_) {
        buffer_.reset(new (std::nothrow) unsigned char[kBytes]);
    }
    return static_cast<bool>(buffer_);
}

bool Backlog::HasRoom() const {
    return count_ < kMaxMessages && liveBytes_ + kLargestRecord <= kBytes;
}

Backlog::Head Backlog::HeadAt(std::size_t at) const {
    Head head;
    std::memcpy(&head, buffer_.get() + at, sizeof head);
    return head;
}

std::size_t Backlog::SkipTaken(std::size_t at) const {
    while (at < tail_ && HeadAt(at).live == 0) {
        at += HeadAt(at).size;
    }
    return at;
}

void Backlog::Compact() {
    std::size_t to = 0;
    for (std::size_t at = head_; at < tail_;) {
        const Head head = HeadAt(at);
        if (head.live != 0) {
            std::memmove(buffer_.get() + to, buffer_.get() + at, head.size);
            to += head.size;
        }
        at += head.size;
    }
    head_ = 0;
    tail_ = to;
}

void Backlog::Push(const FrameView& frame) {
    const std::size_t size = RecordSize(frame.senderLength, frame.payloadLength);
    if (tail_ + size > kBytes) {
        Compact();
    }
    Head head;
    head.size = static_cast<std::uint32_t>(size);
    head.type = frame.type;
    head.payloadLength = frame.payloadLength;
    head.senderLength = static_cast<std::uint16_t>(frame.senderLength);
    head.live = 1;
    unsigned char* record = buffer_.get() + tail_;
    std::memcpy(record, &head, sizeof head);
    std::memcpy(record + sizeof head, frame.sender, frame.senderLength);
    if (frame.payloadLength > 0) {
        std::memcpy(record + sizeof head + frame.senderLength, frame.payload, frame.payloadLength);
    }
    tail_ += size;
    ++count_;
    liveBytes_ += size;
}

std::size_t Backlog::Find(unsigned int type, const std::string& sender) const {
    for (std::size_t at = SkipTaken(head_); at < tail_; at = SkipTaken(at + HeadAt(at).size)) {
        const Head head = HeadAt(at);
        if (TypeMatches(type, head.type) &&
            (sender.empty() ||
             (sender.size() == head.senderLength &&
              std::memcmp(sender.data(), buffer_.get() + at + sizeof head, sender.size()) == 0))) {
            return at;
        }
    }
    return kNone;
}

unsigned int Backlog::TypeAt(std::size_t at) const {
    return HeadAt(at).type;
}

void Backlog::Take(std::size_t at, IpcMessage& message, std::string& senderScratch) {
    const Head head = HeadAt(at);
    const unsigned char* record = buffer_.get() + at;
    {
        SeamBypass bypass;
        // Only the heap can refuse (the payload is within bounds, the seam is bypassed): the
        // message then arrives empty rather than with another message's bytes.
        if (message.Allocate(head.type, head.payloadLength,
                             const_cast<char*>(reinterpret_cast<const char*>(
                                 record + sizeof head + head.senderLength))) != 0) {
            message.Allocate(head.type, 0, nullptr);
        }
    }
    Drop(at, senderScratch);
    message.SetSender(senderScratch);
}

void Backlog::Drop(std::size_t at, std::string& sender) {
    Head head = HeadAt(at);
    sender.assign(reinterpret_cast<const char*>(buffer_.get() + at + sizeof head),
                  head.senderLength);
    head.live = 0;
    std::memcpy(buffer_.get() + at, &head, sizeof head);
    --count_;
    liveBytes_ -= head.size;
    if (count_ == 0) {
        head_ = tail_ = 0;
    } else if (at == head_) {
        head_ = SkipTaken(head_);
    }
}

}  // namespace hostipc

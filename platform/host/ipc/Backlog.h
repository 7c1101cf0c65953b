// Messages an endpoint has read from its socket but not handed out yet, in arrival order: the
// ones a selective receive passed over, and the one read ahead to see whether a shutdown notice
// follows. One buffer, allocated when the endpoint opens, holds them packed, each taking its own
// size and a small header; beyond the bound the rest stays in the socket, so its senders are
// paced by the kernel again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "IpcFrame.h"

class IpcMessage;

namespace hostipc {

class Backlog {
public:
    static const std::size_t kMaxMessages = 1024;
    static const std::size_t kBytes = 512u << 10;
    static const std::size_t kNone = static_cast<std::size_t>(-1);

    // False when the buffer cannot be had.
    bool Allocate();
    bool Empty() const { return count_ == 0; }
    std::size_t Count() const { return count_; }
    std::size_t Bytes() const { return liveBytes_; }
    // True while one more message of the largest size fits.
    bool HasRoom() const;
    // Appends a copy of the frame; the caller checked HasRoom.
    void Push(const FrameView& frame);

    // Position of the oldest message, or of the oldest matching `type` (0 = any) and `sender`
    // (empty = any); kNone when there is none.
    std::size_t First() const { return Empty() ? kNone : head_; }
    std::size_t Find(unsigned int type, const std::string& sender) const;
    unsigned int TypeAt(std::size_t at) const;
    // Copies the message at `at` into `message` and removes it from the backlog.
    void Take(std::size_t at, IpcMessage& message, std::string& senderScratch);
    // Removes the message at `at`, giving only its sender.
    void Drop(std::size_t at, std::string& sender);

private:
    struct Head {
        std::uint32_t size;  // of the whole record, header and padding included
        std::uint32_t type;
        std::uint32_t payloadLength;
        std::uint16_t senderLength;
        std::uint16_t live;
    };
    Head HeadAt(std::size_t at) const;
    // The live record at or after `at`; tail_ when none.
    std::size_t SkipTaken(std::size_t at) const;
    void Compact();

    std::unique_ptr<unsigned char[]> buffer_;
    std::size_t head_ = 0;  // first record not yet removed
    std::size_t tail_ = 0;  // end of the last record
    std::size_t count_ = 0;
    std::size_t liveBytes_ = 0;
};

}  // namespace hostipc

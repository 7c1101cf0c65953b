#include "IpcFrame.h"

#include "LinxIpc.h"

namespace hostipc {
namespace {

void PutBig(unsigned char* p, std::uint32_t value) {
    p[0] = static_cast<unsigned char>(value >> 24);
    p[1] = static_cast<unsigned char>(value >> 16);
    p[2] = static_cast<unsigned char>(value >> 8);
    p[3] = static_cast<unsigned char>(value);
}

std::uint32_t GetBig(const unsigned char* p) {
    return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
           (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}

}  // namespace

void PutFrameHeader(unsigned char* header, std::uint32_t type, std::uint32_t nameLength,
                    std::uint32_t payloadLength) {
    PutBig(header, kFrameMagic);
    PutBig(header + 4, type);
    PutBig(header + 8, nameLength);
    PutBig(header + 12, payloadLength);
}

bool ValidName(const char* name, std::size_t length) {
    if (length == 0 || length > kMaxNameLength) {
        return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(name[i]);
        if (c <= ' ' || c >= 0x7F || c == '/') {
            return false;
        }
    }
    return true;
}

bool ParseFrame(unsigned char* datagram, std::size_t length, FrameView& view) {
    if (length < kFrameHeaderSize || GetBig(datagram) != kFrameMagic) {
        return false;
    }
    const std::uint32_t nameLength = GetBig(datagram + 8);
    const std::uint32_t payloadLength = GetBig(datagram + 12);
    // Both bounds are checked before adding, so hostile lengths cannot wrap the sum.
    if (nameLength == 0 || nameLength > kMaxNameLength || payloadLength > IpcMessage::kMaxPayload ||
        length != kFrameHeaderSize + nameLength + payloadLength) {
        return false;
    }
    if (!ValidName(reinterpret_cast<const char*>(datagram + kFrameHeaderSize), nameLength)) {
        return false;
    }
    view.type = GetBig(datagram + 4);
    view.sender = reinterpret_cast<const char*>(datagram + kFrameHeaderSize);
    view.senderLength = nameLength;
    view.payload = datagram + kFrameHeaderSize + nameLength;
    view.payloadLength = payloadLength;
    return true;
}

}  // namespace hostipc

// One datagram between endpoints: a fixed header in big-endian order (so a big-endian program
// under emulation and a native tool read each other), the sender's name, then the payload
// exactly as the sender built it.
//
//   offset 0  u32 magic 0x4C4E5846 ("LNXF")
//   offset 4  u32 message type
//   offset 8  u32 sender-name length (1..kMaxNameLength)
//   offset 12 u32 payload length (0..IpcMessage::kMaxPayload)
//   offset 16 sender name (no NUL), then the payload
#pragma once

#include <cstddef>
#include <cstdint>

namespace hostipc {

const std::uint32_t kFrameMagic = 0x4C4E5846u;
const std::size_t kFrameHeaderSize = 16;
const std::size_t kMaxNameLength = 255;

void PutFrameHeader(unsigned char* header, std::uint32_t type, std::uint32_t nameLength,
                    std::uint32_t payloadLength);

struct FrameView {
    std::uint32_t type = 0;
    const char* sender = nullptr;
    std::size_t senderLength = 0;
    unsigned char* payload = nullptr;
    std::uint32_t payloadLength = 0;
};

// False when the datagram is not one complete, well-formed frame.
bool ParseFrame(unsigned char* datagram, std::size_t length, FrameView& view);

// An endpoint name is 1..kMaxNameLength printable ASCII characters without blanks or '/': names
// are printed in log lines and name files in the domain, so none may forge a line or point
// outside the domain.
bool ValidName(const char* name, std::size_t length);

}  // namespace hostipc

// CRC-32C (Castagnoli), the checksum of every record and segment header in the metadata files.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mdj {

// Continues `crc` (0 to start) over `size` bytes at `data`.
std::uint32_t Crc32c(std::uint32_t crc, const unsigned char* data, std::size_t size);

}  // namespace mdj

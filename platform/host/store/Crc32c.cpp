#include "Crc32c.h"

namespace mdj {

namespace {

// Eight tables, so that eight bytes are folded in per step (a copy checks every byte it reads).
// Words are put together byte by byte: the same on either byte order.
struct Crc32cTables {
    std::uint32_t t[8][256];
    Crc32cTables() {
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t crc = i;
            for (int bit = 0; bit < 8; ++bit) {
                crc = (crc & 1u) != 0 ? (crc >> 1) ^ 0x82F63B78u : crc >> 1;
            }
            t[0][i] = crc;
        }
        for (int k = 1; k < 8; ++k) {
            for (std::uint32_t i = 0; i < 256; ++i) {
                t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFFu];
            }
        }
    }
};

const Crc32cTables kTables;

std::uint32_t Le32(const unsigned char* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

}  // namespace

std::uint32_t Crc32c(std::uint32_t crc, const unsigned char* data, std::size_t size) {
    const auto& t = kTables.t;
    crc = ~crc;
    for (; size >= 8; data += 8, size -= 8) {
        const std::uint32_t one = crc ^ Le32(data);
        const std::uint32_t two = Le32(data + 4);
        crc = t[7][one & 0xFFu] ^ t[6][(one >> 8) & 0xFFu] ^ t[5][(one >> 16) & 0xFFu] ^
              t[4][one >> 24] ^ t[3][two & 0xFFu] ^ t[2][(two >> 8) & 0xFFu] ^
              t[1][(two >> 16) & 0xFFu] ^ t[0][two >> 24];
    }
    for (; size > 0; ++data, --size) {
        crc = t[0][(crc ^ *data) & 0xFFu] ^ (crc >> 8);
    }
    return ~crc;
}

}  // namespace mdj

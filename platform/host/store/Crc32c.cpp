#include "Crc32c.h"

namespace mdj {

namespace {

struct Crc32cTable {
    std::uint32_t entries[256];
    Crc32cTable() {
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t crc = i;
            for (int bit = 0; bit < 8; ++bit) {
                crc = (crc & 1u) != 0 ? (crc >> 1) ^ 0x82F63B78u : crc >> 1;
            }
            entries[i] = crc;
        }
    }
};

const Crc32cTable kTable;

}  // namespace

std::uint32_t Crc32c(std::uint32_t crc, const unsigned char* data, std::size_t size) {
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i) {
        crc = kTable.entries[(crc ^ data[i]) & 0xFFu] ^ (crc >> 8);
    }
    return ~crc;
}

}  // namespace mdj

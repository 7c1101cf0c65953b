// A range copy over a damaged store: the first eight bytes are the range's first and last tick
// (big-endian), the rest the store (fuzz::WriteStore). Whatever the store holds, the copy is
// a file that reads back without trouble, holding its opening snapshot and what was copied.
#include <unistd.h>

#include <string>

#include "FuzzSupport.h"
#include "RangeCopy.h"

namespace {

std::uint32_t Be32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 8) {
        return 0;
    }
    const std::string base = fuzz::WriteStore(data + 8, size - 8);
    const std::string copy = fuzz::Path("copy.mdj");
    ::unlink(copy.c_str());
    mdj::CopyResult result;
    if (!mdj::CopyRange(base, copy, Be32(data), Be32(data + 4), nullptr, &result)) {
        return 0;
    }
    const fuzz::ReadCounts read = fuzz::ReadAll(copy);
    fuzz::Check(read.troubles == 0, "a range copy does not read back clean");
    fuzz::Check(read.records == result.recordsCopied + 1,
                "a range copy holds other records than it copied");
    return 0;
}

// Copies the records of a store whose time lies in [first, second] into a new one-segment
// file that opens with the state as of `first`. Shared by MetadataReader and mdstore copy.
#pragma once

#include <cstdint>
#include <string>

namespace mdj {

class CopyProgress {
public:
    virtual ~CopyProgress() = default;
    // Called at the start, at least every 100 ms and every few hundred records while the copy
    // works, and at the end.
    virtual void Working(unsigned long long recordsRead, unsigned long long recordsCopied) = 0;
};

struct CopyResult {
    unsigned long long recordsRead = 0;
    unsigned long long recordsCopied = 0;  // without the opening snapshot
    unsigned long long problems = 0;       // damaged places found in the source (skipped)
};

// False, and no file left behind, when `destination` exists (a symbolic link too, even a
// dangling one), its directory is missing, first > second, the source has nothing to read, or
// writing fails.
// `kinds`, when given, holds kOpCount flags: only records of the types set are copied (and the
// time anchors, which date them; the opening snapshot still holds the whole state).
bool CopyRange(const std::string& source, const std::string& destination, std::uint32_t first,
               std::uint32_t second, CopyProgress* progress, CopyResult* result = nullptr,
               const bool* kinds = nullptr);

// The same into `fd`, an empty file the caller made and closes (and removes on failure).
bool CopyRangeInto(const std::string& source, int fd, std::uint32_t first, std::uint32_t second,
                   CopyProgress* progress, CopyResult* result = nullptr,
                   const bool* kinds = nullptr);

}  // namespace mdj

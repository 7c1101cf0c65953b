// Which of the files that look like segments of a store are its own. The store's identity is
// the one carried by its newest segment whose header names the number of its file name; its
// segments are the run of numbers that ends there without a gap (a number held by another file
// does not break the run: the store skips it when it creates a segment). A file in the run, or
// right after it, whose header does not parse is the store's when it still could be: a whole
// header that begins with the magic (damaged), or fewer bytes that could be the start of the
// header being written (see StoreScan.cpp). Everything else that looks like a segment is
// foreign: another store's (a copy), out of sequence, or not of this format. Foreign files are
// never read as the store, counted or removed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SegmentFiles.h"

namespace mdj {

struct ForeignFile {
    SegmentFile file;
    std::string why;
};

struct StoreListing {
    std::uint64_t identity = 0;         // 0: the store has no segment yet
    std::vector<SegmentFile> segments;  // its own, oldest first
    std::vector<ForeignFile> foreign;
};

// False when the directory cannot be read.
bool ScanStore(const std::string& basePath, StoreListing& listing);

}  // namespace mdj

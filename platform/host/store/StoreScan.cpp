#include "StoreScan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <cstring>

#include "JournalFormat.h"

namespace mdj {

namespace {

struct Candidate {
    SegmentFile file;
    bool regular = false;  // a plain file (not a link, directory, FIFO ...)
    bool parsed = false;
    std::size_t size = 0;  // of the bytes read, at most a header's worth
    unsigned char bytes[kSegmentHeaderSize] = {};
    SegmentHeader header;
    bool Whole() const { return size == kSegmentHeaderSize; }
};

void ReadHeader(Candidate& candidate) {
    // Never follow a link nor wait on a FIFO that only pretends to be a segment.
    const int fd =
        open(candidate.file.path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        if (fd >= 0) {
            close(fd);
        }
        return;
    }
    candidate.regular = true;
    std::size_t& got = candidate.size;
    while (got < kSegmentHeaderSize) {
        const ssize_t n = read(fd, candidate.bytes + got, kSegmentHeaderSize - got);
        if (n <= 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
    }
    close(fd);
    candidate.parsed = ParseSegmentHeader(candidate.bytes, got, candidate.header);
}

// Whether a file whose header does not parse, in the place of segment `number` of the store
// `identity` (0: not known yet), is still the store's own. A whole header must begin with the
// magic, or name this store and this segment number (a damaged magic): damage elsewhere in it.
// Fewer bytes were a header being written when the power went: none, zeros (space given before
// the data), or the start of the very header the store writes there.
bool DamagedOrUnfinished(const Candidate& c, std::uint64_t identity, std::uint32_t number) {
    if (!c.regular) {
        return false;
    }
    unsigned char expected[kSegmentHeaderSize];
    PutSegmentHeader(expected, SegmentHeader{identity, number});
    if (c.Whole()) {
        return StartsWithSegmentMagic(c.bytes, c.size) ||
               (identity != 0 && std::memcmp(c.bytes + 8, expected + 8, 12) == 0);
    }
    const unsigned char zeros[kSegmentHeaderSize] = {};
    if (identity == 0) {  // the identity, and the CRC over it, are not known
        std::memcpy(expected + 8, c.bytes + 8, 8);
        std::memcpy(expected + 20, c.bytes + 20, 4);
    }
    return std::memcmp(c.bytes, zeros, c.size) == 0 || std::memcmp(c.bytes, expected, c.size) == 0;
}

std::string Why(const Candidate& c, std::uint64_t identity) {
    if (!c.regular) {
        return "not a plain file";
    }
    if (!c.parsed) {
        return c.Whole() && StartsWithSegmentMagic(c.bytes, c.size)
                   ? "a damaged segment header, out of sequence"
                   : "no segment header of this format";
    }
    if (c.header.identity != identity) {
        return "a segment of another store (a copy?)";
    }
    char text[96];
    if (c.header.number != c.file.number) {
        std::snprintf(text, sizeof text, "out of sequence: its header says segment %u",
                      static_cast<unsigned>(c.header.number));
    } else {
        std::snprintf(text, sizeof text, "out of sequence: segments are missing after it");
    }
    return text;
}

}  // namespace

bool ScanStore(const std::string& basePath, StoreListing& listing) {
    listing = StoreListing();
    std::vector<SegmentFile> files;
    if (!ListSegments(basePath, files)) {
        return false;
    }
    std::vector<Candidate> all;
    for (const SegmentFile& file : files) {
        Candidate candidate;
        candidate.file = file;
        if (file.path != SegmentPath(basePath, file.number)) {
            // "metadata.1.mdj" beside "metadata.000001.mdj": never a name the store gives.
            listing.foreign.push_back({file, "not a name the store gives its segments"});
            continue;
        }
        ReadHeader(candidate);
        all.push_back(candidate);
    }
    // The newest file that is what its name says.
    std::size_t newest = all.size();
    for (std::size_t i = all.size(); i-- > 0;) {
        if (all[i].parsed && all[i].header.number == all[i].file.number) {
            newest = i;
            break;
        }
    }
    std::vector<bool> own(all.size(), false);
    if (newest < all.size()) {
        listing.identity = all[newest].header.identity;
        own[newest] = true;
        std::uint32_t expected = all[newest].file.number;
        for (std::size_t i = newest; i-- > 0 && all[i].file.number + 1 == expected;) {
            const Candidate& c = all[i];
            expected = c.file.number;
            own[i] = c.parsed ? c.regular && c.header.identity == listing.identity &&
                                    c.header.number == c.file.number
                              : DamagedOrUnfinished(c, listing.identity, c.file.number);
        }
    }
    // Right after the store's newest (or as the first of a new store): its segment whose header
    // was damaged, or the one being created when the power went.
    const std::uint32_t next = newest < all.size() ? all[newest].file.number + 1 : 1;
    const std::size_t after = newest < all.size() ? newest + 1 : 0;
    if (after < all.size() && all[after].file.number == next && !all[after].parsed) {
        own[after] = DamagedOrUnfinished(all[after], listing.identity, next);
    }
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (own[i]) {
            listing.segments.push_back(all[i].file);
        } else {
            listing.foreign.push_back({all[i].file, Why(all[i], listing.identity)});
        }
    }
    return true;
}

}  // namespace mdj

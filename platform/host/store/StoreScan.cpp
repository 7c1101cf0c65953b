#include "StoreScan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>

#include "JournalFormat.h"

namespace mdj {

namespace {

struct Candidate {
    SegmentFile file;
    bool regular = false;  // a plain file (not a link, directory, FIFO ...)
    bool parsed = false;
    bool whole = false;  // at least a header's worth of bytes
    SegmentHeader header;
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
    unsigned char bytes[kSegmentHeaderSize];
    std::size_t got = 0;
    while (got < sizeof bytes) {
        const ssize_t n = read(fd, bytes + got, sizeof bytes - got);
        if (n <= 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
    }
    close(fd);
    candidate.whole = got == sizeof bytes;
    candidate.parsed = ParseSegmentHeader(bytes, got, candidate.header);
}

std::string Why(const Candidate& c, std::uint64_t identity) {
    if (!c.regular) {
        return "not a plain file";
    }
    if (!c.parsed) {
        return "no segment header of this format";
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
            // A header that does not parse inside the run is this store's, damaged.
            own[i] = c.regular && (!c.parsed || (c.header.identity == listing.identity &&
                                                 c.header.number == c.file.number));
        }
    }
    // A segment cut off before its header was whole, right after the store's newest (or as
    // the first of a new store), was being created when the power went.
    const std::uint32_t next = newest < all.size() ? all[newest].file.number + 1 : 1;
    const std::size_t after = newest < all.size() ? newest + 1 : 0;
    if (after < all.size() && all[after].regular && !all[after].whole &&
        all[after].file.number == next) {
        own[after] = true;
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

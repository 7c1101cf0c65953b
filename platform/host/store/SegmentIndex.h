// A segment's index, kept beside it as <base>.NNNNNN.mdx, lets a copy read only the stretches
// of a store its range needs. The segment is cut into blocks, each beginning with a snapshot
// (the segment's opening one, or one the store writes when a block has grown past its size),
// so reading can start at any block. Per block the index holds where it lies and the smallest
// and largest record time in it:
//
//   header: the 24 bytes of the segment's own header (so an index never describes another file)
//   entry:  offset u32 | length u32 | smallest time u32 | largest time u32 | CRC-32C of the 16
//
// All big-endian. Blocks follow each other without a gap from the end of the segment header.
// An entry is written once its block is closed and its bytes have been handed to the segment;
// the block being written has none, and neither has anything after a torn or failed write. The
// index is only a guide: a reader checks it and reads what it does not cover.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "JournalFormat.h"

namespace mdj {

const std::size_t kIndexEntrySize = 20;
// A block closes after this much (or eight times its snapshot, when that is larger), so the
// snapshots add less than one part in a hundred to a running store.
const std::size_t kBlockBytes = 64u << 10;

struct IndexBlock {
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    std::uint32_t minTime = 0xFFFFFFFFu;
    std::uint32_t maxTime = 0;
};

std::string IndexPath(const std::string& segmentPath);

// The blocks the index of the segment at `segmentPath` (`header` its first bytes, `size` its
// length) describes, in order, up to the first entry that does not check out.
void LoadSegmentIndex(const std::string& segmentPath,
                      const unsigned char (&header)[kSegmentHeaderSize], std::size_t size,
                      std::vector<IndexBlock>& blocks);

// The writing side, owned by the store; no allocation after Open.
class IndexWriter {
public:
    ~IndexWriter() { Close(); }
    void Open(const std::string& segmentPath, const unsigned char (&header)[kSegmentHeaderSize]);
    // Writes what is closed (the segment's bytes are written by now) and closes the file.
    void Close();
    // A snapshot begins a block at `offset`; the block before it ends there.
    void BeginBlock(std::size_t offset);
    void Note(std::uint32_t time);
    // The segment ends at `end`: its last block is closed.
    void EndBlock(std::size_t end);
    std::size_t BlockStart() const { return block_.offset; }
    // Hands closed blocks to the file: called after the segment's bytes were written.
    void Write();
    // Segment bytes were lost: the rest of this segment goes without an index.
    void Drop();

private:
    static const unsigned kPending = 4;
    int fd_ = -1;
    bool open_ = false;
    IndexBlock block_;
    unsigned char pending_[kPending][kIndexEntrySize];
    unsigned pendingCount_ = 0;
};

}  // namespace mdj

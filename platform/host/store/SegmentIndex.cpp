#include "SegmentIndex.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstring>

#include "BigEndian.h"
#include "Crc32c.h"
#include "SegmentFiles.h"

namespace mdj {

namespace {
// Far more entries than any segment has; a larger file is not read past it.
const std::size_t kMaxIndexBytes = 1u << 20;
}  // namespace

std::string IndexPath(const std::string& segmentPath) {
    const std::string::size_type dot = segmentPath.rfind('.');
    return (dot == std::string::npos ? segmentPath : segmentPath.substr(0, dot)) + ".mdx";
}

void LoadSegmentIndex(const std::string& segmentPath,
                      const unsigned char (&header)[kSegmentHeaderSize], std::size_t size,
                      std::vector<IndexBlock>& blocks) {
    blocks.clear();
    const int fd = open(IndexPath(segmentPath).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    struct stat info;
    if (fstat(fd, &info) != 0 || info.st_size < static_cast<off_t>(kSegmentHeaderSize)) {
        close(fd);
        return;
    }
    const std::size_t bytes = static_cast<std::size_t>(info.st_size);
    std::vector<unsigned char> data(bytes < kMaxIndexBytes ? bytes : kMaxIndexBytes);
    std::size_t got = 0;
    while (got < data.size()) {
        const ssize_t n = read(fd, data.data() + got, data.size() - got);
        if (n <= 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
    }
    close(fd);
    if (got < kSegmentHeaderSize || std::memcmp(data.data(), header, kSegmentHeaderSize) != 0) {
        return;
    }
    std::size_t next = kSegmentHeaderSize;
    for (std::size_t at = kSegmentHeaderSize; at + kIndexEntrySize <= got; at += kIndexEntrySize) {
        const unsigned char* entry = data.data() + at;
        IndexBlock block;
        block.offset = GetBe32(entry);
        block.length = GetBe32(entry + 4);
        block.minTime = GetBe32(entry + 8);
        block.maxTime = GetBe32(entry + 12);
        if (GetBe32(entry + 16) != Crc32c(0, entry, 16) || block.offset != next ||
            block.length == 0 || block.length > size - next) {
            return;
        }
        next += block.length;
        blocks.push_back(block);
    }
}

void IndexWriter::Open(const std::string& segmentPath,
                       const unsigned char (&header)[kSegmentHeaderSize]) {
    Close();
    // What a removed segment left behind under this name is replaced.
    fd_ = open(IndexPath(segmentPath).c_str(),
               O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0660);
    open_ = false;
    pendingCount_ = 0;
    if (fd_ >= 0 && !WriteAll(fd_, header, kSegmentHeaderSize)) {
        Drop();
    }
}

void IndexWriter::Close() {
    Write();
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
    open_ = false;
    pendingCount_ = 0;
}

void IndexWriter::BeginBlock(std::size_t offset) {
    EndBlock(offset);
    block_ = IndexBlock();
    block_.offset = static_cast<std::uint32_t>(offset);
    open_ = true;
}

void IndexWriter::Note(std::uint32_t time) {
    block_.minTime = time < block_.minTime ? time : block_.minTime;
    block_.maxTime = time > block_.maxTime ? time : block_.maxTime;
}

void IndexWriter::EndBlock(std::size_t end) {
    if (!open_ || fd_ < 0 || end <= block_.offset) {
        return;
    }
    open_ = false;
    if (pendingCount_ == kPending) {
        Write();
    }
    unsigned char* entry = pending_[pendingCount_++];
    PutBe32(entry, block_.offset);
    PutBe32(entry + 4, static_cast<std::uint32_t>(end - block_.offset));
    PutBe32(entry + 8, block_.minTime);
    PutBe32(entry + 12, block_.maxTime);
    PutBe32(entry + 16, Crc32c(0, entry, 16));
}

void IndexWriter::Write() {
    const unsigned count = pendingCount_;
    pendingCount_ = 0;
    if (fd_ >= 0 && count > 0 && !WriteAll(fd_, pending_[0], count * kIndexEntrySize)) {
        Drop();
    }
}

void IndexWriter::Drop() {
    // Whatever reached the file still checks out; nothing more is added to it.
    pendingCount_ = 0;
    Close();
}

}  // namespace mdj

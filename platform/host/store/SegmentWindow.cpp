#include "SegmentWindow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "SegmentFiles.h"

namespace mdj {

SegmentWindow::SegmentWindow(std::vector<unsigned char>& buffer, std::size_t bytes)
    : buffer_(buffer), bytes_(bytes) {}

SegmentWindow::~SegmentWindow() {
    Close();
}

void SegmentWindow::Close() {
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
}

bool SegmentWindow::Open(const std::string& path) {
    Close();
    size_ = start_ = held_ = 0;
    failed_ = false;
    fd_ = OpenRegularFile(path, O_RDONLY);
    struct stat info;
    // Offsets must fit a size_t with room for a frame after them (a 32-bit target).
    if (fd_ < 0 || fstat(fd_, &info) != 0 || info.st_size < 0 ||
        static_cast<std::uint64_t>(info.st_size) > SIZE_MAX / 2) {
        Close();
        return false;
    }
    // What the file holds now is what is read: bytes a live writer adds meanwhile wait for the
    // next reading, as they would have for a reading of the whole file.
    size_ = static_cast<std::size_t>(info.st_size);
    return true;
}

bool SegmentWindow::Hold(std::size_t offset, std::size_t count) {
    if (offset + count <= start_ + held_) {
        return true;
    }
    if (fd_ < 0 || offset < start_ || offset + count > size_) {
        return false;
    }
    // Keep what is held from `offset` on, then fill up to the window's size.
    const std::size_t keep = start_ + held_ > offset ? start_ + held_ - offset : 0;
    if (keep > 0) {
        std::memmove(buffer_.data(), buffer_.data() + (offset - start_), keep);
    }
    start_ = offset;
    held_ = keep;
    const std::size_t want = std::min(std::max(bytes_, count), size_ - offset);
    if (buffer_.size() < want) {
        buffer_.resize(want);
    }
    while (held_ < want) {
        const ssize_t got =
            pread(fd_, buffer_.data() + held_, want - held_, static_cast<off_t>(start_ + held_));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            // Cut back or unreadable from here: the file ends here for the scan.
            failed_ = got < 0;
            size_ = start_ + held_;
            break;
        }
        held_ += static_cast<std::size_t>(got);
    }
    return offset + count <= start_ + held_;
}

}  // namespace mdj

// A bounded window onto a metadata file: the bytes a scan needs, read as it needs them, so a
// reader holds the same memory whatever the file's length (a copied range is one file as long
// as the range). The file is read, not mapped: a store a live process cuts back while it is read
// would otherwise fault.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace mdj {

class SegmentWindow {
public:
    // Twice the largest frame, so each refill moves the window on by at least a frame's worth.
    static const std::size_t kDefaultBytes = 2u << 20;

    // `buffer` holds the window (kept by the caller to reuse it from file to file). It never
    // holds more than `bytes` or what the largest frame the scan asks for needs.
    explicit SegmentWindow(std::vector<unsigned char>& buffer, std::size_t bytes = kDefaultBytes);
    ~SegmentWindow();
    SegmentWindow(const SegmentWindow&) = delete;
    SegmentWindow& operator=(const SegmentWindow&) = delete;

    // False when `path` is no regular file that can be opened (a link is not followed).
    bool Open(const std::string& path);
    // The file's length when it was opened; less once reading found it shorter or failed.
    std::size_t Size() const { return size_; }
    // Whether a read failed (the file ends for the scan where it did).
    bool Failed() const { return failed_; }

    // Makes [offset, offset + count) held, moving the window to begin at `offset` when it must
    // (a scan never goes back before that). False when the file ends before.
    bool Hold(std::size_t offset, std::size_t count);
    const unsigned char* Data() const { return buffer_.data(); }
    std::size_t Start() const { return start_; }  // the file offset of Data()[0]
    std::size_t Held() const { return held_; }

private:
    void Close();

    std::vector<unsigned char>& buffer_;
    std::size_t bytes_;
    int fd_ = -1;
    std::size_t size_ = 0;
    std::size_t start_ = 0;
    std::size_t held_ = 0;
    bool failed_ = false;
};

}  // namespace mdj

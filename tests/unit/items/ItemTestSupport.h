// Helpers of the item tests: encoded bytes, expected layouts in the machine's own byte order,
// and buffers that end right before an unreadable page.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "Item.h"

namespace itemtest {

using Bytes = std::vector<unsigned char>;

// The item's encoding; the test fails when Encode's end disagrees with Size().
inline Bytes Encoded(const Item& item) {
    Bytes bytes(item.Size() + 16, 0xEE);
    unsigned char* end = item.Encode(bytes.data());
    if (end != bytes.data() + item.Size()) {
        return Bytes();
    }
    bytes.resize(item.Size());
    return bytes;
}

// An expected layout, written field by field in native order.
class Layout {
public:
    explicit Layout(unsigned int size, unsigned char fill = 0) : bytes_(size, fill) {}
    template <typename T>
    Layout& At(unsigned int offset, T value) {
        std::memcpy(bytes_.data() + offset, &value, sizeof value);
        return *this;
    }
    Layout& Text(unsigned int offset, const char* text) {
        std::memcpy(bytes_.data() + offset, text, std::strlen(text) + 1);
        return *this;
    }
    const Bytes& bytes() const { return bytes_; }
    unsigned char* data() { return bytes_.data(); }

private:
    Bytes bytes_;
};

inline bool BigEndianMachine() {
    const unsigned short probe = 0x0102;
    unsigned char first;
    std::memcpy(&first, &probe, 1);
    return first == 0x01;
}

// `size` readable bytes followed by a page that faults on any access: a decoder that reads
// past them crashes the test instead of passing by luck.
class FencedBuffer {
public:
    explicit FencedBuffer(unsigned int size) {
        page_ = static_cast<unsigned int>(::sysconf(_SC_PAGESIZE));
        pages_ = (size + page_ - 1) / page_ + 1;
        void* base = ::mmap(nullptr, pages_ * page_, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) {
            return;
        }
        base_ = static_cast<unsigned char*>(base);
        ::mprotect(base_ + (pages_ - 1) * page_, page_, PROT_NONE);
        data_ = base_ + (pages_ - 1) * page_ - size;
    }
    ~FencedBuffer() {
        if (base_ != nullptr) {
            ::munmap(base_, pages_ * page_);
        }
    }
    FencedBuffer(const FencedBuffer&) = delete;
    FencedBuffer& operator=(const FencedBuffer&) = delete;

    unsigned char* data() { return data_; }

private:
    unsigned char* base_ = nullptr;
    unsigned char* data_ = nullptr;
    unsigned int page_ = 0;
    unsigned int pages_ = 0;
};

}  // namespace itemtest

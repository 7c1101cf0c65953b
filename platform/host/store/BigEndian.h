// The metadata files are big-endian whatever the processor: every field is written and read
// byte by byte, so a file from the target reads the same on a PC.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace mdj {

inline void PutBe16(unsigned char* p, std::uint16_t v) {
    p[0] = static_cast<unsigned char>(v >> 8);
    p[1] = static_cast<unsigned char>(v);
}
inline void PutBe32(unsigned char* p, std::uint32_t v) {
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}
inline std::uint16_t GetBe16(const unsigned char* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
inline std::uint32_t GetBe32(const unsigned char* p) {
    return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
           (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}

// Appends fields to a caller-owned buffer of fixed capacity; once a field does not fit the
// writer stays failed, so a record is either whole or refused.
class BodyWriter {
public:
    BodyWriter(unsigned char* buffer, std::size_t capacity) : p_(buffer), capacity_(capacity) {}

    void U8(std::uint8_t v) {
        if (Room(1)) {
            p_[size_++] = v;
        }
    }
    void Bool(bool v) { U8(v ? 1 : 0); }
    void U16(std::uint16_t v) {
        if (Room(2)) {
            PutBe16(p_ + size_, v);
            size_ += 2;
        }
    }
    void U32(std::uint32_t v) {
        if (Room(4)) {
            PutBe32(p_ + size_, v);
            size_ += 4;
        }
    }
    void Bytes(const unsigned char* data, std::size_t n) {
        if (Room(n)) {
            std::memcpy(p_ + size_, data, n);
            size_ += n;
        }
    }
    // A text: 16-bit length and its bytes, cut at kMaxText.
    void Text(const char* text);

    static const std::size_t kMaxText = 255;

    bool Ok() const { return ok_; }
    std::size_t Size() const { return size_; }

private:
    bool Room(std::size_t n) {
        if (!ok_ || capacity_ - size_ < n) {
            ok_ = false;
            return false;
        }
        return true;
    }
    unsigned char* p_;
    std::size_t capacity_;
    std::size_t size_ = 0;
    bool ok_ = true;
};

inline void BodyWriter::Text(const char* text) {
    std::size_t n = 0;
    if (text != nullptr) {
        while (n < kMaxText && text[n] != '\0') {
            ++n;
        }
    }
    U16(static_cast<std::uint16_t>(n));
    Bytes(reinterpret_cast<const unsigned char*>(text), n);
}

// Reads fields from a record body; every read is bounds-checked and a short body fails the
// reader instead of reading past it.
class BodyReader {
public:
    BodyReader(const unsigned char* data, std::size_t size) : p_(data), size_(size) {}

    bool U8(std::uint8_t& v) {
        if (!Need(1)) {
            return false;
        }
        v = p_[pos_++];
        return true;
    }
    bool U16(std::uint16_t& v) {
        if (!Need(2)) {
            return false;
        }
        v = GetBe16(p_ + pos_);
        pos_ += 2;
        return true;
    }
    bool U32(std::uint32_t& v) {
        if (!Need(4)) {
            return false;
        }
        v = GetBe32(p_ + pos_);
        pos_ += 4;
        return true;
    }
    // Points `data` at the next n bytes.
    bool Bytes(const unsigned char*& data, std::size_t n) {
        if (!Need(n)) {
            return false;
        }
        data = p_ + pos_;
        pos_ += n;
        return true;
    }
    std::size_t Pos() const { return pos_; }
    std::size_t Remaining() const { return size_ - pos_; }
    bool AtEnd() const { return pos_ == size_; }

private:
    bool Need(std::size_t n) const { return size_ - pos_ >= n; }
    const unsigned char* p_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

}  // namespace mdj

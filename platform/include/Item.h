// The item library: values exchanged by the subscribe/notify protocol and in messages.
// Fields are native-order on the wire (big-endian on the target); every item encodes to the
// layout documented in docs/wire-layouts.md.
#pragma once

#include <cstdint>
#include <cstring>

class IpcMessage;

class Item {
public:
    virtual ~Item();
    // Bytes this item encodes to.
    virtual unsigned int Size() const = 0;
    // Writes the item at p; returns the byte after it.
    virtual unsigned char* Encode(unsigned char* p) const = 0;
    // Reads the item from p; returns the byte after it. Reads at most the item's fixed layout
    // (a text at most StringItem::kMaxLength + 1 bytes), which IpcMessage::kGuardBytes covers
    // for a message's payload.
    virtual unsigned char* Decode(unsigned char* p) = 0;

    // Allocates `msg` with this item's size (keeping its type) and encodes into it. 0 = success.
    int EncodeMsg(IpcMessage& msg) const;
    // Decodes from the message's payload. Non-zero when there is no payload or the payload is
    // shorter than what was decoded (missing fields then read as zero).
    int DecodeMsg(IpcMessage& msg);

protected:
    Item() = default;
    Item(const Item&) = default;
    Item& operator=(const Item&) = default;
};

// Wire: 1 byte, 0 or 1 (any non-zero byte decodes as true).
class BoolItem : public Item {
public:
    explicit BoolItem(bool value = false) : value_(value) {}
    bool Get() const { return value_; }
    void Set(bool value) { value_ = value; }
    unsigned int Size() const override { return 1; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;

private:
    bool value_;
};

// Wire: 2 bytes, native order.
class UShortItem : public Item {
public:
    explicit UShortItem(unsigned short value = 0) : value_(value) {}
    unsigned short Get() const { return value_; }
    void Set(unsigned short value) { value_ = value; }
    unsigned int Size() const override { return 2; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;

private:
    unsigned short value_;
};

// Wire: the text's bytes and a terminating NUL. Decode takes at most kMaxLength characters;
// a longer text is cut there and decoding goes on after kMaxLength + 1 bytes.
class StringItem : public Item {
public:
    static const unsigned int kMaxLength = 255;

    StringItem() { text_[0] = '\0'; }
    explicit StringItem(const char* text) { Set(text); }
    const char* Get() const { return text_; }
    void Set(const char* text);  // cut at kMaxLength
    unsigned int Length() const { return length_; }
    unsigned int Size() const override { return length_ + 1; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;

private:
    char text_[kMaxLength + 1];
    unsigned int length_ = 0;
};

// Wire: 4 bytes, the unsigned 32-bit system tick, native order.
class SystickItem : public Item {
public:
    explicit SystickItem(unsigned int tick = 0) : tick_(tick) {}
    unsigned int Get() const { return tick_; }
    void Set(unsigned int tick) { tick_ = tick; }
    unsigned int Size() const override { return 4; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;

private:
    unsigned int tick_;
};

// Field helpers for item implementations: native order, memcpy, no alignment assumptions.
namespace itemwire {
template <typename T>
inline unsigned char* Put(unsigned char* p, T value) {
    std::memcpy(p, &value, sizeof value);
    return p + sizeof value;
}
template <typename T>
inline unsigned char* Get(unsigned char* p, T& value) {
    std::memcpy(&value, p, sizeof value);
    return p + sizeof value;
}
}  // namespace itemwire

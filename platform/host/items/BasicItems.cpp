// The member items every record is built from.
#include <cstring>

#include "Item.h"

Item::~Item() = default;

unsigned char* BoolItem::Encode(unsigned char* p) const {
    *p = value_ ? 1 : 0;
    return p + 1;
}

unsigned char* BoolItem::Decode(unsigned char* p) {
    value_ = *p != 0;
    return p + 1;
}

unsigned char* UShortItem::Encode(unsigned char* p) const {
    return itemwire::Put(p, value_);
}

unsigned char* UShortItem::Decode(unsigned char* p) {
    return itemwire::Get(p, value_);
}

void StringItem::Set(const char* text) {
    unsigned int length = 0;
    if (text != nullptr) {
        while (length < kMaxLength && text[length] != '\0') {
            ++length;
        }
        std::memmove(text_, text, length);  // text may be this item's own
    }
    text_[length] = '\0';
    length_ = length;
}

unsigned char* StringItem::Encode(unsigned char* p) const {
    std::memcpy(p, text_, length_ + 1);
    return p + length_ + 1;
}

// A sender's text without a terminator within kMaxLength bytes is cut; the byte at kMaxLength
// is taken as its terminator whatever it holds, so the read never passes the item's layout.
unsigned char* StringItem::Decode(unsigned char* p) {
    unsigned int length = 0;
    while (length < kMaxLength && p[length] != '\0') {
        text_[length] = static_cast<char>(p[length]);
        ++length;
    }
    text_[length] = '\0';
    length_ = length;
    return p + length + 1;
}

unsigned char* SystickItem::Encode(unsigned char* p) const {
    return itemwire::Put(p, tick_);
}

unsigned char* SystickItem::Decode(unsigned char* p) {
    return itemwire::Get(p, tick_);
}

// Fixed-size item layouts: fields sit at stated offsets and every byte between them is
// reserved, so an encoder clears the whole layout first and a decoder only reads the fields.
#pragma once

#include <cstring>

#include "Item.h"

namespace itemlayout {

inline void Clear(unsigned char* p, unsigned int size) {
    std::memset(p, 0, size);
}

template <typename T>
inline void PutAt(unsigned char* p, unsigned int offset, T value) {
    itemwire::Put(p + offset, value);
}

template <typename T>
inline void GetAt(unsigned char* p, unsigned int offset, T& value) {
    itemwire::Get(p + offset, value);
}

// A one-byte flag: any non-zero byte reads as true.
inline bool GetFlagAt(unsigned char* p, unsigned int offset) {
    return p[offset] != 0;
}
inline void PutFlagAt(unsigned char* p, unsigned int offset, bool value) {
    p[offset] = value ? 1 : 0;
}

}  // namespace itemlayout

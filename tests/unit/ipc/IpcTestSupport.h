// Helpers of the IPC tests: payloads as text or native words, and sending from text.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

#include "LinxIpc.h"

const std::string kAny;  // empty: any sender

inline std::string Text(const IpcMessage& message) {
    return message.Size() == 0
               ? std::string()
               : std::string(reinterpret_cast<const char*>(message.DataPtr()), message.Size());
}

inline std::uint32_t Word(const IpcMessage& message, unsigned int index) {
    std::uint32_t word = 0;
    if (message.Size() >= 4 * (index + 1)) {
        std::memcpy(&word, message.DataPtr() + 4 * index, sizeof word);
    }
    return word;
}

inline std::string Words(std::initializer_list<std::uint32_t> words) {
    std::string bytes;
    for (std::uint32_t word : words) {
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    return bytes;
}

// True when the message was sent.
inline bool Send(LinxIpc& from, const std::string& to, unsigned int type, std::string bytes = "") {
    IpcMessage message;
    const unsigned int size = static_cast<unsigned int>(bytes.size());
    bytes.push_back('\0');  // a writable buffer even for an empty payload
    return message.Allocate(type, size, &bytes[0]) == 0 && from.Notify(to, message, true) == 0;
}

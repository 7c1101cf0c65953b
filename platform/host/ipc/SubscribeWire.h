// Payloads of the subscribe protocol. Fields are 32-bit unsigned in the machine's own order,
// like every payload: client and server are the same machine type.
//
//   kSubscribeRequest    itemId, notifyId
//   kSubscribeReply      itemId, notifyId, status (kAccepted / kRefused), then when accepted
//                        the item's encoded bytes
//   kUnsubscribeRequest  (itemId, notifyId) pairs to drop; no payload drops every
//                        subscription of the sending endpoint
#pragma once

#include <cstdint>
#include <cstring>

namespace hostipc {

const unsigned int kRequestBytes = 8;
const unsigned int kReplyHeaderBytes = 12;
const unsigned int kPairBytes = 8;
const std::uint32_t kAccepted = 0;
const std::uint32_t kRefused = 1;

inline std::uint32_t WordAt(const unsigned char* payload, unsigned int index) {
    std::uint32_t word;
    std::memcpy(&word, payload + 4 * index, sizeof word);
    return word;
}

inline void PutWord(unsigned char* payload, unsigned int index, std::uint32_t word) {
    std::memcpy(payload + 4 * index, &word, sizeof word);
}

}  // namespace hostipc

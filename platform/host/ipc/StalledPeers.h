// Destinations that stopped reading their queue. The first send that finds such a queue full
// waits for room as long as any send may (about 1 s); after that, sends to it try once and fail
// at once, until one goes through. So a requester that never reads its answers costs its server
// one wait, not one per request.
#pragma once

#include <cstddef>
#include <string>

#include "IpcFrame.h"

namespace hostipc {

class StalledPeers {
public:
    static const std::size_t kSlots = 16;

    bool Contains(const std::string& name) const;
    // Remembers `name`; the oldest entry gives way when every slot is taken.
    void Add(const std::string& name);
    void Remove(const std::string& name);

private:
    struct Slot {
        std::size_t length = 0;  // 0: free
        char name[kMaxNameLength];
    };
    std::size_t Find(const std::string& name) const;

    Slot slots_[kSlots];
    std::size_t next_ = 0;
};

}  // namespace hostipc

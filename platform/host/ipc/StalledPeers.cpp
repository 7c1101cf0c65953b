#include "StalledPeers.h"

#include <cstring>

namespace hostipc {

const std::size_t StalledPeers::kSlots;

std::size_t StalledPeers::Find(const std::string& name) const {
    for (std::size_t i = 0; i < kSlots; ++i) {
        if (slots_[i].length != 0 && slots_[i].length == name.size() &&
            std::memcmp(slots_[i].name, name.data(), name.size()) == 0) {
            return i;
        }
    }
    return kSlots;
}

bool StalledPeers::Contains(const std::string& name) const {
    return Find(name) != kSlots;
}

void StalledPeers::Add(const std::string& name) {
    if (name.empty() || name.size() > kMaxNameLength || Contains(name)) {
        return;
    }
    Slot& slot = slots_[next_];
    next_ = (next_ + 1) % kSlots;
    std::memcpy(slot.name, name.data(), name.size());
    slot.length = name.size();
}

void StalledPeers::Remove(const std::string& name) {
    const std::size_t at = Find(name);
    if (at != kSlots) {
        slots_[at].length = 0;
    }
}

}  // namespace hostipc

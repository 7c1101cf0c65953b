// Items of the microphone manager.
#pragma once

#include "Item.h"
#include "PlatformTypes.h"

// Microphone manager, item 0. Layout: 0x00 entry count (unsigned 32), then per entry 8 bytes
// (unsigned 32 position, present byte, active byte, 2 reserved), then the unsigned 32 tick.
// Decode takes at most kMaxEntries entries.
class MicStatusResponse : public Item {
public:
    static const unsigned int kMaxEntries = 8;
    struct Entry {
        e_MicrophonePosition position = e_Mic_0;
        bool present = false;
        bool active = false;
    };

    unsigned int Count() const { return count_; }
    const Entry& EntryAt(unsigned int index) const { return entries_[index]; }
    // Appends an entry; false when full.
    bool Add(e_MicrophonePosition position, bool present, bool active);
    void Clear() { count_ = 0; }
    unsigned int tick = 0;

    unsigned int Size() const override { return 4 + 8 * count_ + 4; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;

private:
    Entry entries_[kMaxEntries];
    unsigned int count_ = 0;
};

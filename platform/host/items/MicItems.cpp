// The microphone manager's status: a counted list of microphones and a tick.
#include "MicItems.h"

#include "FixedLayout.h"

namespace {
const unsigned int kEntrySize = 8;
}  // namespace

bool MicStatusResponse::Add(e_MicrophonePosition position, bool present, bool active) {
    if (count_ >= kMaxEntries) {
        return false;
    }
    Entry& entry = entries_[count_++];
    entry.position = position;
    entry.present = present;
    entry.active = active;
    return true;
}

unsigned char* MicStatusResponse::Encode(unsigned char* p) const {
    p = itemwire::Put(p, count_);
    for (unsigned int i = 0; i < count_; ++i) {
        const Entry& entry = entries_[i];
        itemlayout::Clear(p, kEntrySize);
        itemlayout::PutAt(p, 0, static_cast<unsigned int>(entry.position));
        itemlayout::PutFlagAt(p, 4, entry.present);
        itemlayout::PutFlagAt(p, 5, entry.active);
        p += kEntrySize;
    }
    return itemwire::Put(p, tick);
}

// The count comes from the sender. A list longer than the item holds is malformed: it decodes
// as an empty response, so neither a cut list nor a tick read from the wrong place is passed on,
// and nothing past the count word is read.
unsigned char* MicStatusResponse::Decode(unsigned char* p) {
    unsigned int count = 0;
    p = itemwire::Get(p, count);
    if (count > kMaxEntries) {
        count_ = 0;
        tick = 0;
        return p;
    }
    count_ = count;
    for (unsigned int i = 0; i < count_; ++i) {
        Entry& entry = entries_[i];
        unsigned int position = 0;
        itemlayout::GetAt(p, 0, position);
        entry.position = static_cast<e_MicrophonePosition>(position);
        entry.present = itemlayout::GetFlagAt(p, 4);
        entry.active = itemlayout::GetFlagAt(p, 5);
        p += kEntrySize;
    }
    return itemwire::Get(p, tick);
}

// The current value of every state the store has been told: the last record of each kind and
// key (per tag, source, radar, microphone, sensor, stream, camera, component; one for the MAC,
// serial, GPS, each configuration record ...). A snapshot record holds these records, so
// applying a snapshot and then the records after it gives the state at any point.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mdj {

class StoreState {
public:
    static const unsigned kMaxSlots = 128;
    static const std::size_t kMaxSlotBody = 1024;
    // The largest snapshot body Encode writes.
    static const std::size_t kMaxSnapshotBody = 4 + kMaxSlots * (3 + kMaxSlotBody);

    void Clear();
    // Takes a record into the state: a state record replaces its slot, a snapshot replaces the
    // whole state, other records are ignored. False for a record that does not decode (the
    // state is then left as it was, except that a bad snapshot leaves it cleared).
    bool Apply(std::uint8_t op, const unsigned char* body, std::size_t size);
    // Writes the snapshot body of the current state into `out`; returns its size, 0 when it
    // does not fit.
    std::size_t Encode(bool force, std::uint8_t cause, unsigned char* out,
                       std::size_t capacity) const;

    unsigned Slots() const { return count_; }
    // State records that found no free slot (the records themselves are in the journal).
    unsigned long Dropped() const { return dropped_; }
    // True when a state record changed the state since the last MarkWritten.
    bool ChangedSinceWritten() const { return changed_; }
    void MarkWritten() { changed_ = false; }

private:
    struct Slot {
        std::uint8_t op;
        std::uint32_t key;
        std::uint16_t size;
        unsigned char body[kMaxSlotBody];
    };
    bool Put(std::uint8_t op, const unsigned char* body, std::size_t size);

    Slot slots_[kMaxSlots];
    unsigned count_ = 0;
    unsigned long dropped_ = 0;
    bool changed_ = false;
};

}  // namespace mdj

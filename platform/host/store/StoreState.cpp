#include "StoreState.h"

#include <cstring>

#include "BigEndian.h"
#include "RecordSchema.h"

namespace mdj {

void StoreState::Clear() {
    count_ = 0;
    changed_ = true;
}

bool StoreState::Put(std::uint8_t op, const unsigned char* body, std::size_t size) {
    const OpLayout* layout = FindOp(op);
    if (layout == nullptr || layout->keyField < -1) {
        return true;
    }
    if (size > kMaxSlotBody) {
        ++dropped_;
        return true;
    }
    std::uint32_t key = 0;
    if (layout->keyField >= 0 &&
        !TopField(*layout, body, size, static_cast<unsigned>(layout->keyField), key)) {
        return false;
    }
    Slot* slot = nullptr;
    for (unsigned i = 0; i < count_; ++i) {
        if (slots_[i].op == op && slots_[i].key == key) {
            slot = &slots_[i];
            break;
        }
    }
    if (slot == nullptr) {
        if (count_ == kMaxSlots) {
            ++dropped_;
            return true;
        }
        slot = &slots_[count_++];
        slot->op = op;
        slot->key = key;
    }
    slot->size = static_cast<std::uint16_t>(size);
    std::memcpy(slot->body, body, size);
    changed_ = true;
    return true;
}

bool StoreState::Apply(std::uint8_t op, const unsigned char* body, std::size_t size) {
    if (!WalkRecord(op, body, size, nullptr)) {
        return false;
    }
    if (op != kOpWriteFullState) {
        return Put(op, body, size);
    }
    Clear();
    BodyReader in(body, size);
    std::uint8_t force = 0;
    std::uint8_t cause = 0;
    std::uint16_t count = 0;
    in.U8(force);
    in.U8(cause);
    in.U16(count);
    for (unsigned i = 0; i < count; ++i) {
        std::uint8_t entryOp = 0;
        std::uint16_t length = 0;
        const unsigned char* entry = nullptr;
        if (!in.U8(entryOp) || !in.U16(length) || !in.Bytes(entry, length) ||
            !Put(entryOp, entry, length)) {
            return false;
        }
    }
    return true;
}

std::size_t StoreState::Encode(bool force, std::uint8_t cause, unsigned char* out,
                               std::size_t capacity) const {
    BodyWriter writer(out, capacity);
    writer.Bool(force);
    writer.U8(cause);
    writer.U16(static_cast<std::uint16_t>(count_));
    for (unsigned i = 0; i < count_; ++i) {
        writer.U8(slots_[i].op);
        writer.U16(slots_[i].size);
        writer.Bytes(slots_[i].body, slots_[i].size);
    }
    return writer.Ok() ? writer.Size() : 0;
}

}  // namespace mdj

// The one shape of every event handler of the manager: entry trace, null-payload check,
// decode, one call on the manager with the flag true.
#pragma once

#include "Item.h"
#include "LinxIpc.h"
#include "Log.h"

class MetadataMgr;

struct HandlerTexts {
    const char* entry;        // the entry trace, usually the handler's name
    const char* nullPayload;  // the name in "<name>: error, DataPtr is null"
    unsigned int entryMask;   // 64 for almost every handler
};

inline HandlerTexts Named(const char* name) {
    return HandlerTexts{name, name, 64};
}

// Decoding helpers for the work of a handler. Each is false when the payload is shorter than
// the layout it was read as, or malformed; the bytes past a short payload are the endpoint's
// zero guard, so the read itself is always in bounds.
namespace payload {
// An item decoded straight from the payload (Item::Decode). A well-formed item takes exactly
// the bytes it encodes to; one the item class could not make sense of takes fewer.
inline bool DecodeFromData(IpcMessage& msg, Item& item) {
    const unsigned char* end = item.Decode(msg.DataPtr());
    const unsigned int taken = static_cast<unsigned int>(end - msg.DataPtr());
    return taken <= msg.Size() && taken == item.Size();
}
// An item filled from the whole message (Item::DecodeMsg).
inline bool DecodeFromMessage(IpcMessage& msg, Item& item) {
    return item.DecodeMsg(msg) == 0;
}
// Raw fields read in place: the payload holds at least `size` bytes.
inline bool Holds(const IpcMessage& msg, unsigned int size) {
    return msg.Size() >= size;
}
}  // namespace payload

// `work(manager, message)` decodes and reports; it returns false for a payload too short for
// its layout or malformed, which is logged and dropped so that no half-read value reaches the
// store.
template <typename Work>
inline void RunEventHandler(LinxIpc* ipc, void* context, const HandlerTexts& texts, Work work) {
    MM_LOG(texts.entryMask) << texts.entry;
    IpcMessage& msg = ipc->CurrentMessage();
    if (msg.DataPtr() == nullptr) {
        MM_LOG(2) << texts.nullPayload << ": error, DataPtr is null";
        return;
    }
    if (!work(*static_cast<MetadataMgr*>(context), msg)) {
        MM_LOG(2) << texts.nullPayload << ": error, payload too short or malformed (" << msg.Size()
                  << " bytes), dropped";
    }
}

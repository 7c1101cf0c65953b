#include "StreamingLvsStateItem.h"

ExternalMgrApi::StreamingLvsStateItem::~StreamingLvsStateItem() = default;

unsigned int ExternalMgrApi::StreamingLvsStateItem::Size() const {
    return enabled_.Size() + highQuality_.Size() + camera_.Size() + address_.Size() + port_.Size();
}

unsigned char* ExternalMgrApi::StreamingLvsStateItem::Encode(unsigned char* p) const {
    p = enabled_.Encode(p);
    p = highQuality_.Encode(p);
    p = camera_.Encode(p);
    p = address_.Encode(p);
    return port_.Encode(p);
}

unsigned char* ExternalMgrApi::StreamingLvsStateItem::Decode(unsigned char* p) {
    p = enabled_.Decode(p);
    p = highQuality_.Decode(p);
    p = camera_.Decode(p);
    p = address_.Decode(p);
    return port_.Decode(p);
}

// The state of one live video stream as the external manager reports it.
#pragma once

#include "ExternalMgrApi.h"
#include "Item.h"

// Wire: the five member items back to back (enabled, high quality, camera, receiver address,
// receiver port), each in its own encoding, with nothing of its own around them.
class ExternalMgrApi::StreamingLvsStateItem : public Item {
public:
    StreamingLvsStateItem() = default;
    StreamingLvsStateItem(const StreamingLvsStateItem&) = default;
    StreamingLvsStateItem& operator=(const StreamingLvsStateItem&) = default;
    ~StreamingLvsStateItem() override;

    bool Enabled() const { return enabled_.Get(); }
    void SetEnabled(bool enabled) { enabled_.Set(enabled); }
    bool HighQuality() const { return highQuality_.Get(); }
    void SetHighQuality(bool highQuality) { highQuality_.Set(highQuality); }
    unsigned short Camera() const { return camera_.Get(); }
    void SetCamera(unsigned short camera) { camera_.Set(camera); }
    // The receiver's IPv4 address as dotted text, as the sender wrote it.
    const char* Address() const { return address_.Get(); }
    void SetAddress(const char* address) { address_.Set(address); }
    unsigned short Port() const { return port_.Get(); }
    void SetPort(unsigned short port) { port_.Set(port); }

    unsigned int Size() const override;
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;

private:
    BoolItem enabled_{false};
    BoolItem highQuality_{false};
    UShortItem camera_{0};
    StringItem address_;
    UShortItem port_{0};
};

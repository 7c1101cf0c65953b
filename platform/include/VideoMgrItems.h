// Items of the video manager.
#pragma once

#include "Item.h"
#include "PlatformTypes.h"

// Video manager, item 0. Layout 40 bytes: nine camera entries of one unsigned 32-bit state
// each, then the unsigned 32 tick.
class VideoMgrCameraItem : public Item {
public:
    static const unsigned int kEntries = 9;
    static const unsigned int kWireSize = 4 * kEntries + 4;
    e_CameraState cameraState[kEntries] = {};
    unsigned int tick = 0;

    unsigned int Size() const override { return kWireSize; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

// Video manager, item 1. Layout 52 bytes: four streams of (unsigned 32 quality, unsigned 32
// bit rate in kbit/s, unsigned 16 frame rate, unsigned 16 resolution code), then the tick.
class VideoMgrStreamQualityItem : public Item {
public:
    static const unsigned int kStreams = 4;
    static const unsigned int kWireSize = 12 * kStreams + 4;
    struct Stream {
        unsigned int quality = 0;
        unsigned int bitRateKbps = 0;
        unsigned short frameRate = 0;
        unsigned short resolution = 0;
    };
    Stream streams[kStreams];
    unsigned int tick = 0;

    unsigned int Size() const override { return kWireSize; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

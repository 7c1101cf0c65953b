// Items of the video manager: camera states and stream qualities.
#include "VideoMgrItems.h"

unsigned char* VideoMgrCameraItem::Encode(unsigned char* p) const {
    for (unsigned int i = 0; i < kEntries; ++i) {
        p = itemwire::Put(p, static_cast<unsigned int>(cameraState[i]));
    }
    return itemwire::Put(p, tick);
}

// States are passed through as numbers, including ones this side has no name for.
unsigned char* VideoMgrCameraItem::Decode(unsigned char* p) {
    for (unsigned int i = 0; i < kEntries; ++i) {
        unsigned int state = 0;
        p = itemwire::Get(p, state);
        cameraState[i] = static_cast<e_CameraState>(state);
    }
    return itemwire::Get(p, tick);
}

unsigned char* VideoMgrStreamQualityItem::Encode(unsigned char* p) const {
    for (unsigned int i = 0; i < kStreams; ++i) {
        const Stream& stream = streams[i];
        p = itemwire::Put(p, stream.quality);
        p = itemwire::Put(p, stream.bitRateKbps);
        p = itemwire::Put(p, stream.frameRate);
        p = itemwire::Put(p, stream.resolution);
    }
    return itemwire::Put(p, tick);
}

unsigned char* VideoMgrStreamQualityItem::Decode(unsigned char* p) {
    for (unsigned int i = 0; i < kStreams; ++i) {
        Stream& stream = streams[i];
        p = itemwire::Get(p, stream.quality);
        p = itemwire::Get(p, stream.bitRateKbps);
        p = itemwire::Get(p, stream.frameRate);
        p = itemwire::Get(p, stream.resolution);
    }
    return itemwire::Get(p, tick);
}

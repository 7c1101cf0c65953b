// Items of the hardware processes: fixed layouts with reserved bytes between the fields.
#include "HalItems.h"

#include "FixedLayout.h"

using itemlayout::Clear;
using itemlayout::GetAt;
using itemlayout::GetFlagAt;
using itemlayout::PutAt;
using itemlayout::PutFlagAt;

unsigned char* FpgaExternalEventItem::Encode(unsigned char* p) const {
    PutAt(p, 0x00, changedMask);
    PutAt(p, 0x04, inputLevels);
    PutAt(p, 0x08, debounce);
    PutAt(p, 0x0C, tick);
    return p + kWireSize;
}

unsigned char* FpgaExternalEventItem::Decode(unsigned char* p) {
    GetAt(p, 0x00, changedMask);
    GetAt(p, 0x04, inputLevels);
    GetAt(p, 0x08, debounce);
    GetAt(p, 0x0C, tick);
    return p + kWireSize;
}

unsigned char* GpsStatusItem::Encode(unsigned char* p) const {
    Clear(p, kWireSize);
    PutAt(p, 0x04, latDegrees);
    PutAt(p, 0x0C, latMinutes);
    PutAt(p, 0x14, latMinuteFraction);
    PutAt(p, 0x18, latHemisphere);
    PutAt(p, 0x20, lonDegrees);
    PutAt(p, 0x28, lonMinutes);
    PutAt(p, 0x30, lonMinuteFraction);
    PutAt(p, 0x34, lonHemisphere);
    PutAt(p, 0x3C, altitude);
    PutAt(p, 0x44, speed);
    PutAt(p, 0x4C, heading);
    PutAt(p, 0x54, magneticVariation);
    PutAt(p, 0x5C, satellitesInView);
    PutAt(p, 0x60, fixStatus);
    PutAt(p, 0x64, fixMode);
    PutAt(p, 0x6C, hdop);
    PutAt(p, 0x70, satellitesUsed);
    PutAt(p, 0x78, geoidSeparation);
    PutAt(p, 0x80, utcTime);
    PutAt(p, 0x84, dataValid);
    PutAt(p, 0x88, tick);
    return p + kWireSize;
}

unsigned char* GpsStatusItem::Decode(unsigned char* p) {
    GetAt(p, 0x04, latDegrees);
    GetAt(p, 0x0C, latMinutes);
    GetAt(p, 0x14, latMinuteFraction);
    GetAt(p, 0x18, latHemisphere);
    GetAt(p, 0x20, lonDegrees);
    GetAt(p, 0x28, lonMinutes);
    GetAt(p, 0x30, lonMinuteFraction);
    GetAt(p, 0x34, lonHemisphere);
    GetAt(p, 0x3C, altitude);
    GetAt(p, 0x44, speed);
    GetAt(p, 0x4C, heading);
    GetAt(p, 0x54, magneticVariation);
    GetAt(p, 0x5C, satellitesInView);
    GetAt(p, 0x60, fixStatus);
    GetAt(p, 0x64, fixMode);
    GetAt(p, 0x6C, hdop);
    GetAt(p, 0x70, satellitesUsed);
    GetAt(p, 0x78, geoidSeparation);
    GetAt(p, 0x80, utcTime);
    GetAt(p, 0x84, dataValid);
    GetAt(p, 0x88, tick);
    return p + kWireSize;
}

unsigned char* RadarItem::Encode(unsigned char* p) const {
    Clear(p, kWireSize);
    PutAt(p, 0x04, status);
    PutAt(p, 0x0C, patrolSpeed);
    PutAt(p, 0x14, targetSpeed);
    PutAt(p, 0x1C, fastestSpeed);
    PutAt(p, 0x24, lockedSpeed);
    PutAt(p, 0x28, tick);
    return p + kWireSize;
}

unsigned char* RadarItem::Decode(unsigned char* p) {
    GetAt(p, 0x04, status);
    GetAt(p, 0x0C, patrolSpeed);
    GetAt(p, 0x14, targetSpeed);
    GetAt(p, 0x1C, fastestSpeed);
    GetAt(p, 0x24, lockedSpeed);
    GetAt(p, 0x28, tick);
    return p + kWireSize;
}

namespace {
// The four temperatures lie 8 bytes apart from 0x04 on.
const unsigned int kTempOffsets[4] = {0x04, 0x0C, 0x14, 0x1C};
const unsigned int kTempTickOffset = 0x48;
}  // namespace

unsigned char* TempStatus::Encode(unsigned char* p) const {
    Clear(p, kWireSize);
    for (unsigned int i = 0; i < 4; ++i) {
        PutAt(p, kTempOffsets[i], temperatures[i]);
    }
    PutAt(p, kTempTickOffset, tick);
    return p + kWireSize;
}

unsigned char* TempStatus::Decode(unsigned char* p) {
    for (unsigned int i = 0; i < 4; ++i) {
        GetAt(p, kTempOffsets[i], temperatures[i]);
    }
    GetAt(p, kTempTickOffset, tick);
    return p + kWireSize;
}

unsigned char* CrashItem::Encode(unsigned char* p) const {
    Clear(p, kWireSize);
    PutFlagAt(p, 0x00, crash);
    PutAt(p, 0x04, tick);
    return p + kWireSize;
}

unsigned char* CrashItem::Decode(unsigned char* p) {
    crash = GetFlagAt(p, 0x00);
    GetAt(p, 0x04, tick);
    return p + kWireSize;
}

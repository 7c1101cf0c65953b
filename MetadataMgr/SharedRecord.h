// The shared record of current GPS and radar values (the block of MetadataSharedMem). Other
// processes of the vehicle read it without asking this one, so its layout is a contract with
// them: every writer here (the GPS and radar reports, the simulator, the start-up reset and the
// end mark) goes through these names, and docs/host-platform.md describes the same table.
// Fields are in the processor's native order; bytes no field names are not ours to write.
#pragma once

#include <cstdint>
#include <cstring>

#include "HalItems.h"

namespace shared {

struct Field {
    unsigned int offset;
    unsigned int width;  // bytes: 1, 2 or 4
};

// Whether the manager keeps the record up to date: running, or gone.
const Field kStateMark = {0x00, 2};
const uint16_t kManagerRunning = 0x0100;
const uint16_t kManagerEnded = 0x0001;

// GPS: the position as the receiver gives it, with the hemispheres as letters.
const Field kGpsDataValid = {0x04, 1};
const Field kLatHemisphere = {0x08, 1};  // 'N' or 'S'
const Field kLatDegrees = {0x0C, 4};
const Field kLatMinutes = {0x10, 2};
const Field kLatMinuteFraction = {0x14, 4};
const Field kLonHemisphere = {0x18, 1};  // 'E' or 'W'
const Field kLonDegrees = {0x1C, 4};
const Field kLonMinutes = {0x20, 2};
const Field kLonMinuteFraction = {0x24, 4};
const Field kHeading = {0x28, 2};
const Field kSatellitesInView = {0x2A, 2};
const Field kFixStatus = {0x2C, 4};
const Field kFixMode = {0x30, 4};
const Field kHdop = {0x34, 4};
const Field kSatellitesUsed = {0x38, 4};
const Field kGeoidSeparation = {0x3C, 4};
const Field kSpeed = {0x40, 2};  // tenths, as received
const Field kMagneticVariation = {0x42, 2};
const Field kUtcTime = {0x44, 4};
const Field kAltitude = {0x48, 4};

// Radar: the status word and the four speeds.
const Field kRadarStatus = {0x4C, 2};
const Field kRadarPatrolSpeed = {0x4E, 2};
const Field kRadarTargetSpeed = {0x50, 2};
const Field kRadarFastestSpeed = {0x52, 2};
const Field kRadarLockedSpeed = {0x54, 2};

// Writes the low `field.width` bytes of `value` (signed values as their two's complement).
inline void Put(unsigned char* record, Field field, uint32_t value) {
    const uint8_t byte = static_cast<uint8_t>(value);
    const uint16_t half = static_cast<uint16_t>(value);
    const void* from = field.width == 1   ? static_cast<const void*>(&byte)
                       : field.width == 2 ? static_cast<const void*>(&half)
                                          : static_cast<const void*>(&value);
    std::memcpy(record + field.offset, from, field.width);
}

// The position of a reading, the hemispheres as letters; `lonMinutes` fills the longitude
// minutes slot.
inline void PutPosition(unsigned char* record, const GpsStatusItem& gps, uint32_t lonMinutes) {
    Put(record, kLatHemisphere, gps.latHemisphere == 1 ? 'N' : 'S');
    Put(record, kLatDegrees, gps.latDegrees);
    Put(record, kLatMinutes, gps.latMinutes);
    Put(record, kLatMinuteFraction, gps.latMinuteFraction);
    Put(record, kLonHemisphere, gps.lonHemisphere == 1 ? 'E' : 'W');
    Put(record, kLonDegrees, gps.lonDegrees);
    Put(record, kLonMinutes, lonMinutes);
    Put(record, kLonMinuteFraction, gps.lonMinuteFraction);
}

}  // namespace shared

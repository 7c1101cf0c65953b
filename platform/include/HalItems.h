// Items of the hardware processes: FPGA inputs, GPS, radar, temperature and accelerometer.
// Each encodes to a fixed layout; the offsets named here are offsets in that layout, and bytes
// between named fields are reserved (encoded as zero, skipped on decode).
#pragma once

#include "Item.h"

// FPGA process, item 17. Layout (16 bytes): 0x00 changed mask, 0x04 input levels, 0x08 debounce
// word, 0x0C tick; all unsigned 32-bit. Bits: 0x2000 ignition, 0x4000 aux, 0x8000 lights,
// 0x10000 brakes, 0x20000 siren, 0x80000 door open.
class FpgaExternalEventItem : public Item {
public:
    static const unsigned int kWireSize = 16;
    unsigned int changedMask = 0;
    unsigned int inputLevels = 0;
    unsigned int debounce = 0;
    unsigned int tick = 0;

    unsigned int Size() const override { return kWireSize; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

// GPS process, item 1. Layout 0x8C bytes.
class GpsStatusItem : public Item {
public:
    static const unsigned int kWireSize = 0x8C;
    unsigned short latDegrees = 0;         // 0x04
    unsigned short latMinutes = 0;         // 0x0C
    unsigned int latMinuteFraction = 0;    // 0x14
    int latHemisphere = 0;                 // 0x18: 1 = north
    unsigned short lonDegrees = 0;         // 0x20
    unsigned short lonMinutes = 0;         // 0x28
    unsigned int lonMinuteFraction = 0;    // 0x30
    int lonHemisphere = 0;                 // 0x34: 1 = east
    int altitude = 0;                      // 0x3C
    unsigned short speed = 0;              // 0x44: tenths
    unsigned short heading = 0;            // 0x4C
    unsigned short magneticVariation = 0;  // 0x54
    unsigned short satellitesInView = 0;   // 0x5C
    unsigned int fixStatus = 0;            // 0x60: 0 or 7 = no usable fix
    int fixMode = 0;                       // 0x64
    int hdop = 0;                          // 0x6C
    int satellitesUsed = 0;                // 0x70
    int geoidSeparation = 0;               // 0x78
    unsigned int utcTime = 0;              // 0x80
    unsigned char dataValid = 0;           // 0x84
    unsigned int tick = 0;                 // 0x88

    unsigned int Size() const override { return kWireSize; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

// Radar process, item 1. Layout 0x2C bytes.
class RadarItem : public Item {
public:
    static const unsigned int kWireSize = 0x2C;
    static const unsigned short kStatusInvalid = 0x0080;
    unsigned short status = 0;        // 0x04
    unsigned short patrolSpeed = 0;   // 0x0C
    unsigned short targetSpeed = 0;   // 0x14
    unsigned short fastestSpeed = 0;  // 0x1C
    unsigned short lockedSpeed = 0;   // 0x24
    unsigned int tick = 0;            // 0x28

    unsigned int Size() const override { return kWireSize; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

// Temperature process, item 0. Layout 0x4C bytes: signed 16-bit temperatures at 0x04, 0x0C,
// 0x14, 0x1C (temperatures[0..3] in that order), tick at 0x48.
class TempStatus : public Item {
public:
    static const unsigned int kWireSize = 0x4C;
    short temperatures[4] = {0, 0, 0, 0};
    unsigned int tick = 0;

    unsigned int Size() const override { return kWireSize; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

// Accelerometer process, item 1. Layout 8 bytes: 0x00 crash flag (1 byte), 0x04 tick.
class CrashItem : public Item {
public:
    static const unsigned int kWireSize = 8;
    bool crash = false;
    unsigned int tick = 0;

    unsigned int Size() const override { return kWireSize; }
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

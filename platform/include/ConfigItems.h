// Records of the configuration manager. Each is its member items back to back, in the order
// declared, in their own encodings.
#pragma once

#include "Item.h"

class VehicleInfo : public Item {
public:
    StringItem vehicleId;
    StringItem licensePlate;
    StringItem description;

    unsigned int Size() const override;
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

class Officer : public Item {
public:
    StringItem officerId;
    StringItem name;

    unsigned int Size() const override;
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

class DepartmentInfo : public Item {
public:
    StringItem departmentId;
    StringItem name;

    unsigned int Size() const override;
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

class SystemInfo : public Item {
public:
    StringItem systemName;
    StringItem unitNumber;

    unsigned int Size() const override;
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};

class VideoRecordingSettings : public Item {
public:
    UShortItem preEventSeconds;
    UShortItem postEventSeconds;
    UShortItem resolution;
    UShortItem frameRate;
    BoolItem recordAudio;

    unsigned int Size() const override;
    unsigned char* Encode(unsigned char* p) const override;
    unsigned char* Decode(unsigned char* p) override;
};
